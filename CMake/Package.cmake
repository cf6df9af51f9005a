# What `cpack` makes of a build: an archive of all that is installed, and Debian packages, one of the
# commands and one for those who build on the toolbox.
set(CPACK_GENERATOR TGZ DEB)
set(CPACK_PACKAGE_NAME reelwork)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "edit QuickTime and MPEG-4 movies without re-encoding")
set(CPACK_PACKAGE_VENDOR "the Reelwork authors")
set(CPACK_PACKAGE_CONTACT "the Reelwork authors <reelwork@example.org>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL commands development)
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
set(CPACK_COMPONENT_COMMANDS_DESCRIPTION "clipjoin plays movies one after the other, clipstak in parallel, cliptune
edits one: cuts, speed, geometry, tracks, chapters. Pictures and sound are
never decoded; only the tables that say when each sample plays are edited.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libreelwork-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "libboost-filesystem-dev, libdeflate-dev, libicu-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "A static library with the calls that the commands of the package reelwork
are written in: open a movie, cut and join tracks, write it again. Found by
CMake and pkg-config.")

include(CPack)
