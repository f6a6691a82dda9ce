# What is installed where, in four components: runtime, development, tool and python (which is only
# installed when asked for by name, in python/CMakeLists.txt).
include(CMakePackageConfigHelpers)

install(TARGETS zorgenreg64 zorosse64 EXPORT zorgenreg64
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(FILES ${library_bill} DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)

# Of the system services, what the public headers include, and the log, which programs may listen to.
file(GLOB public_headers CONFIGURE_DEPENDS include/*.h include/*.hpp)
install(FILES ${public_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(FILES sysservices/diagnostics.h sysservices/export.h sysservices/file_handle.h
              sysservices/file_system.h sysservices/return_codes.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/sysservices COMPONENT development)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zorgenreg64)
install(EXPORT zorgenreg64 NAMESPACE zorgenreg64:: FILE zorgenreg64-targets.cmake
        DESTINATION ${package_dir} COMPONENT development)
configure_package_config_file(cmake/zorgenreg64-config.cmake.in zorgenreg64-config.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(zorgenreg64-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zorgenreg64-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/zorgenreg64-config-version.cmake
        DESTINATION ${package_dir} COMPONENT development)

# The prefix is known when it is installed.
set(cxx_runtime "")
foreach(library stdc++ c++)
  if(library IN_LIST CMAKE_CXX_IMPLICIT_LINK_LIBRARIES)
    string(APPEND cxx_runtime " -l${library}")
  endif()
endforeach()
configure_file(cmake/install_pkgconfig.cmake.in install_pkgconfig.cmake @ONLY)
install(SCRIPT ${CMAKE_CURRENT_BINARY_DIR}/install_pkgconfig.cmake COMPONENT development)

if(ZORGENREG_TOOL)
  install(TARGETS zorreg RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  install(FILES ${tool_bill} DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tool)
  configure_file(docs/zorreg.1.in zorreg.1 @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zorreg.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
          COMPONENT tool)
endif()

# The tool knows what a shell may complete; a cross build has no tool that runs here.
if(ZORGENREG_TOOL AND NOT CMAKE_CROSSCOMPILING)
  file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/completions)
  foreach(row bash|bash-completion/completions|zorreg zsh|zsh/vendor-completions|_zorreg
          fish|fish/vendor_completions.d|zorreg.fish)
    string(REPLACE "|" ";" words ${row})
    list(GET words 0 shell)
    list(GET words 1 folder)
    list(GET words 2 name)
    set(script ${CMAKE_CURRENT_BINARY_DIR}/completions/zorreg.${shell})
    add_custom_command(OUTPUT ${script} COMMAND zorreg completion ${shell} > ${script}
                       DEPENDS zorreg)
    list(APPEND completion_scripts ${script})
    install(FILES ${script} DESTINATION ${CMAKE_INSTALL_DATADIR}/${folder} RENAME ${name}
            COMPONENT tool)
  endforeach()
  add_custom_target(completions ALL DEPENDS ${completion_scripts})
endif()
