# `cmake --install` installs the commands with their manual pages and completions (component
# "commands"), and the toolbox for other programs (component "development").
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The commands. Symbolic links are installed as relative links.
set(bin ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
install(TARGETS clipjoin clipinfo COMPONENT commands)
install(PROGRAMS ${bin}/clipstak ${bin}/cliptune TYPE BIN COMPONENT commands)
install(FILES clipinfo/schema.json clipinfo/check-schema.json
  DESTINATION ${CMAKE_INSTALL_DATADIR}/reelwork COMPONENT commands)

# The examples are named, because a file without an extension is installed as a program.
set(documents ${CMAKE_INSTALL_DATADIR}/doc/reelwork)
install(FILES LICENSE README.md CHANGELOG.md DESTINATION ${documents} COMPONENT commands)
install(DIRECTORY pictures DESTINATION ${documents} COMPONENT commands)
install(FILES examples/CMakeLists.txt examples/cut.cpp
  DESTINATION ${documents}/examples COMPONENT commands)
install(FILES examples/batch/README.md DESTINATION ${documents}/examples/batch COMPONENT commands)
foreach(name join-all join-array.sbatch join-one list-jobs)
  install(PROGRAMS examples/batch/${name}
    DESTINATION ${documents}/examples/batch COMPONENT commands)
endforeach()

set(completions ${PROJECT_SOURCE_DIR}/completions)
foreach(name clipjoin clipstak cliptune clipinfo)
  install(FILES ${completions}/bash/${name}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT commands)
  install(FILES ${completions}/fish/${name}.fish
    DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT commands)
endforeach()
install(FILES ${completions}/zsh/_clipjoin ${completions}/zsh/_clipinfo
  DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions COMPONENT commands)

# The manual pages. Those of the three commands share the text of the options.
set(man ${PROJECT_SOURCE_DIR}/man)
set(pages)
foreach(page clipjoin.1 clipstak.1 cliptune.1 clipinfo.1 Reelwork.7)
  cmake_path(GET page STEM name)
  set(made ${PROJECT_BINARY_DIR}/man/${page})
  add_custom_command(OUTPUT ${made}
    COMMAND awk -v name=${name} -v version=${PROJECT_VERSION} -v options=options.mdoc -f pages.awk
      ${page} > ${made}
    DEPENDS ${man}/${page} ${man}/options.mdoc ${man}/pages.awk
    WORKING_DIRECTORY ${man} VERBATIM)
  list(APPEND pages ${made})
endforeach()
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/man)
add_custom_target(manual ALL DEPENDS ${pages})
foreach(made ${pages})
  cmake_path(GET made EXTENSION section)
  string(REPLACE . man section ${section})
  install(FILES ${made} DESTINATION ${CMAKE_INSTALL_MANDIR}/${section} COMPONENT commands)
endforeach()

# The toolbox: its public header, the headers that it includes, the library, and the files with which
# other programs find them.
set(headers ${CMAKE_INSTALL_INCLUDEDIR}/reelwork)
foreach(header toolbox.h types.h bytes.h codes.h atoms/fourcc.h)
  cmake_path(GET header PARENT_PATH folder)
  install(FILES toolbox/${header} DESTINATION ${headers}/toolbox/${folder} COMPONENT development)
endforeach()
set_target_properties(toolbox PROPERTIES OUTPUT_NAME reelwork)
target_compile_features(toolbox PUBLIC cxx_std_20)
install(TARGETS toolbox EXPORT ReelworkTargets COMPONENT development
  INCLUDES DESTINATION ${headers})

set(package ${CMAKE_INSTALL_LIBDIR}/cmake/Reelwork)
install(EXPORT ReelworkTargets NAMESPACE Reelwork:: DESTINATION ${package} COMPONENT development)
configure_package_config_file(CMake/ReelworkConfig.cmake.in
  ${PROJECT_BINARY_DIR}/ReelworkConfig.cmake INSTALL_DESTINATION ${package})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ReelworkConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ReelworkConfig.cmake
  ${PROJECT_BINARY_DIR}/ReelworkConfigVersion.cmake CMake/FindDeflate.cmake CMake/FindIsal.cmake
  DESTINATION ${package} COMPONENT development)

# Relative to the place of the pkg-config file, so that the installed tree can be moved.
file(RELATIVE_PATH up /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(CMake/reelwork.pc.in ${PROJECT_BINARY_DIR}/reelwork.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/reelwork.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
