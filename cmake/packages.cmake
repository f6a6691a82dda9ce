# `cpack` makes an archive of what is installed; scripts/package makes the Debian packages.
set(CPACK_PACKAGE_NAME zorgenreg64)
set(CPACK_PACKAGE_CONTACT "zorgenreg64 maintainers <maintainers@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "Small registries of configuration records in files, changed without ever losing one")
set(CPACK_GENERATOR TGZ)
include(CPack)
