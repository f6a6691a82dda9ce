# `cpack` makes an archive of what is installed, for Windows zips; scripts/package makes the Debian
# packages.
set(CPACK_PACKAGE_NAME zorgenreg64)
set(CPACK_PACKAGE_CONTACT "zorgenreg64 maintainers <maintainers@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "Small registries of configuration records in files, changed without ever losing one")
set(CPACK_GENERATOR TGZ)
if(WIN32 AND ZORGENREG_INSTALL AND ZORGENREG_TOOL AND library_type STREQUAL "SHARED_LIBRARY")
  include(cmake/windows_package.cmake)
endif()
include(CPack)
