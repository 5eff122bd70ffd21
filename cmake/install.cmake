# What `cmake --install` lays down: the library, its headers, and what lets a host find both.
include(CMakePackageConfigHelpers)
install(TARGETS quillon EXPORT quillon-targets
  RUNTIME COMPONENT library LIBRARY COMPONENT library NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development)
set(left_out "")
if(WIN32 OR NOT QUILLON_APPS)
  set(left_out PATTERN recipe.h EXCLUDE)  # it comes with archives, which are not packed for Windows
endif()
install(DIRECTORY include/quillon DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
        ${left_out})

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/quillon)
install(EXPORT quillon-targets NAMESPACE quillon:: DESTINATION ${package_dir}
        FILE quillon-config.cmake COMPONENT development)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/quillon-config-version.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/quillon-config-version.cmake DESTINATION ${package_dir}
        COMPONENT development)

configure_file(cmake/quillon.pc.in ${PROJECT_BINARY_DIR}/quillon.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quillon.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)
if(QUILLON_APPS AND NOT WIN32)
  # quillon/recipe.h: archives that programs of the same compiler family link.
  install(FILES $<TARGET_FILE:quillon_kit> $<TARGET_FILE:quillon_finder>
          DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  configure_file(cmake/quillon-recipe.pc.in ${PROJECT_BINARY_DIR}/quillon-recipe.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/quillon-recipe.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endif()
if(QUILLON_APPS)
  install(TARGETS quillon_cli RUNTIME COMPONENT cli)
  # The page that `quillon workbench` opens is one for all systems; scripts/workbench builds it, and
  # scripts/package says so where it is missing.
  install(FILES ${PROJECT_SOURCE_DIR}/build/wasm/web/workbench.html
          DESTINATION ${CMAKE_INSTALL_DATADIR}/quillon COMPONENT cli OPTIONAL)
  if(NOT WIN32)
    set(made ${PROJECT_BINARY_DIR}/apps/quillon)
    install(FILES ${made}/quillon.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT cli)
    set(share ${CMAKE_INSTALL_DATADIR})
    install(FILES ${made}/quillon.bash DESTINATION ${share}/bash-completion/completions
            RENAME quillon COMPONENT cli)
    install(FILES ${made}/quillon.fish DESTINATION ${share}/fish/vendor_completions.d COMPONENT cli)
    install(FILES ${made}/quillon.zsh DESTINATION ${share}/zsh/vendor-completions
            RENAME _quillon COMPONENT cli)
  endif()
endif()
