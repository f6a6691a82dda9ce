# A compiler with Visual C++'s names links to the plain C ones alone; zorgenreg.hpp asks for no others
# there.
if(MSVC OR CMAKE_C_SIMULATE_ID STREQUAL "MSVC" OR CMAKE_CXX_SIMULATE_ID STREQUAL "MSVC")
  get_filename_component(_zorgenreg64_lib "${CMAKE_CURRENT_LIST_DIR}/../../zorgenreg64.lib" ABSOLUTE)
  get_target_property(_zorgenreg64_configs zorgenreg64::zorgenreg64 IMPORTED_CONFIGURATIONS)
  foreach(_zorgenreg64_config IN LISTS _zorgenreg64_configs)
    set_target_properties(zorgenreg64::zorgenreg64 PROPERTIES
      IMPORTED_IMPLIB_${_zorgenreg64_config} "${_zorgenreg64_lib}"
      IMPORTED_LINK_DEPENDENT_LIBRARIES_${_zorgenreg64_config} "")
  endforeach()
  set_target_properties(zorgenreg64::zorgenreg64 PROPERTIES INTERFACE_LINK_LIBRARIES "")
  unset(_zorgenreg64_lib)
  unset(_zorgenreg64_configs)
endif()
