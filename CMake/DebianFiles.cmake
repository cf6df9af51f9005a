# Adds the files that Debian policy requires. cpack runs this for each tree that it packs.
if(NOT CPACK_GENERATOR STREQUAL DEB)
  return()
endif()

set(names_commands reelwork)
set(names_development libreelwork-dev)
file(GLOB trees ${CPACK_TEMPORARY_DIRECTORY}/*/usr)
foreach(tree ${trees})
  cmake_path(GET tree PARENT_PATH component)
  cmake_path(GET component FILENAME component)
  set(package ${names_${component}})
  set(documents ${tree}/share/doc/${package})

  file(MAKE_DIRECTORY ${documents})
  file(REMOVE_RECURSE ${tree}/share/doc/reelwork/LICENSE)
  if(EXISTS ${documents}/CHANGELOG.md)
    file(RENAME ${documents}/CHANGELOG.md ${documents}/changelog)
  endif()
  configure_file(${CMAKE_CURRENT_LIST_DIR}/../LICENSE ${documents}/copyright COPYONLY)
  string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
  file(WRITE ${documents}/changelog.Debian
    "reelwork (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium\n\n"
    "  * See https://keepachangelog.com and the CHANGELOG.md of the sources.\n\n"
    " -- ${CPACK_PACKAGE_CONTACT}  ${now}\n")
  file(CHMOD ${documents}/changelog.Debian ${documents}/copyright
    PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

  # pkg-config of another architecture looks only into the folder of that architecture.
  if(EXISTS ${tree}/lib/pkgconfig)
    file(READ ${tree}/lib/pkgconfig/reelwork.pc text)
    string(REPLACE "\${pcfiledir}/" "\${pcfiledir}/../" text "${text}")
    file(WRITE ${tree}/lib/${CPACK_LIBRARY_ARCHITECTURE}/pkgconfig/reelwork.pc "${text}")
    file(REMOVE_RECURSE ${tree}/lib/pkgconfig)
  endif()

  file(GLOB to_compress ${documents}/changelog* ${tree}/share/man/man*/*)
  execute_process(COMMAND gzip -9n ${to_compress} COMMAND_ERROR_IS_FATAL ANY)
  if(EXISTS ${tree}/share/zsh/site-functions)
    file(RENAME ${tree}/share/zsh/site-functions ${tree}/share/zsh/vendor-completions)
  endif()
endforeach()
