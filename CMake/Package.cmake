# `cpack` makes an archive of everything that is installed, and two Debian packages: one with the
# commands, and one with the toolbox for programs that use it.
set(CPACK_GENERATOR TGZ DEB)
set(CPACK_PACKAGE_NAME reelwork)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "edit QuickTime and MPEG-4 movies without re-encoding")
set(CPACK_PACKAGE_VENDOR "the Reelwork authors")
set(CPACK_PACKAGE_CONTACT "the Reelwork authors <reelwork@example.org>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL commands development)
set(CPACK_LIBRARY_ARCHITECTURE ${CMAKE_LIBRARY_ARCHITECTURE}) # DebianFiles.cmake uses it
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/CMake/DebianFiles.cmake)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMMANDS_PACKAGE_NAME reelwork)
set(CPACK_DEBIAN_COMMANDS_PACKAGE_SECTION video)
set(CPACK_DEBIAN_COMMANDS_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_COMMANDS_DESCRIPTION "clipjoin joins movies one after the other, clipstak plays movies at the same
time, and cliptune edits one movie: cuts, speed, geometry, tracks, chapters.
They never decode video or sound. They edit only the tables that say when each
sample plays. clipinfo shows, checks, compares and draws movies.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libreelwork-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "libboost-filesystem-dev, libdeflate-dev, libicu-dev, libisal-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "A static library with the calls that the commands of the package reelwork
use: open a movie, cut and join tracks, and write it. CMake and pkg-config
find it.")

include(CPack)
