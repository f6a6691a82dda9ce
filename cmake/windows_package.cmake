# What is delivered for Windows, as its developers expect it: the libraries and the tool with version
# resources and without symbols, which come apart; an import library for each family of compilers;
# and two zips, of the product and of its symbols.

# --- version resources; windres is called by itself: the compilers' options are none of its ---

string(REPLACE "." "," rc_version "${PROJECT_VERSION}.0")
function(zor_version_resource rc_target rc_type rc_description)
  set(script ${CMAKE_CURRENT_BINARY_DIR}/${rc_target}-version.rc)
  set(object ${CMAKE_CURRENT_BINARY_DIR}/${rc_target}-version.o)
  set(rc_file ${rc_target}.dll)
  if(rc_type EQUAL 1)
    set(rc_file ${rc_target}.exe)
  endif()
  configure_file(cmake/version.rc.in ${script} @ONLY)
  add_custom_command(OUTPUT ${object} DEPENDS ${script} VERBATIM
                     COMMAND ${CMAKE_RC_COMPILER} -O coff ${script} ${object})
  target_sources(${rc_target} PRIVATE ${object})
endfunction()
zor_version_resource(zorosse64 2 "System services of zorgenreg64")
zor_version_resource(zorgenreg64 2 "Small registries of configuration records")
zor_version_resource(zorreg 1 "Reads and changes small registries of configuration records")

# --- symbols in NAME.debug, where debuggers look for them; no time of day makes two builds differ ---

set(objcopy ${CMAKE_COMMAND} -E env SOURCE_DATE_EPOCH=0 ${CMAKE_OBJCOPY})
foreach(target zorosse64 zorgenreg64 zorreg)
  target_link_options(${target} PRIVATE LINKER:--gc-sections LINKER:--no-insert-timestamp)
  set(file $<TARGET_FILE:${target}>)
  add_custom_command(TARGET ${target} POST_BUILD VERBATIM
    COMMAND ${objcopy} --only-keep-debug ${file} ${file}.debug
    COMMAND ${objcopy} --strip-all --add-gnu-debuglink=${file}.debug ${file})
  install(FILES ${file}.debug DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT symbols)
endforeach()

# --- the plain C names for every other compiler: a list of them, and an import library made of it ---

set(definition ${CMAKE_CURRENT_BINARY_DIR}/zorgenreg64.def)
set(import_library ${CMAKE_CURRENT_BINARY_DIR}/zorgenreg64.lib)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS cmake/exports.txt)
file(STRINGS cmake/exports.txt c_names REGEX "^[A-Za-z_0-9]+$")
set(lines "LIBRARY zorgenreg64.dll\nEXPORTS\n")
foreach(name IN LISTS c_names)
  string(APPEND lines "  ${name}")
  if(name MATCHES "^(bCompactFormattedLine|sqlzThisIsAZORLibrary)$")
    string(APPEND lines " DATA")
  endif()
  string(APPEND lines "\n")
endforeach()
file(CONFIGURE OUTPUT ${definition} CONTENT "${lines}" @ONLY)
find_program(ZORGENREG_LLVM_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14 REQUIRED)
add_custom_command(OUTPUT ${import_library} DEPENDS ${definition} VERBATIM
  COMMAND ${ZORGENREG_LLVM_DLLTOOL} -m i386:x86-64 -d ${definition} -l ${import_library})
add_custom_target(import_library ALL DEPENDS ${import_library})
install(FILES ${definition} ${import_library} DESTINATION ${CMAKE_INSTALL_LIBDIR}
        COMPONENT development)

# --- the zips ---

install(FILES cmake/windows_config.cmake DESTINATION ${package_dir}
        RENAME zorgenreg64-visual-cpp.cmake COMPONENT development)
install(FILES README.md CHANGELOG.md docs/windows.md docs/cookbook.md docs/formats.md
        docs/reliability.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
set(CPACK_GENERATOR ZIP)
set(CPACK_COMPONENTS_ALL runtime development tool symbols)
foreach(component RUNTIME DEVELOPMENT TOOL)
  set(CPACK_COMPONENT_${component}_GROUP product)
endforeach()
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /)
# The folder of both: unpacked in one place, the symbols are beside the files.
set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
set(CPACK_PACKAGE_FILE_NAME zorgenreg64-${PROJECT_VERSION}-win64)
set(CPACK_ARCHIVE_PRODUCT_FILE_NAME ${CPACK_PACKAGE_FILE_NAME})
set(CPACK_ARCHIVE_SYMBOLS_FILE_NAME ${CPACK_PACKAGE_FILE_NAME}-symbols)
