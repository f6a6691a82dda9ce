# A bill of materials (SPDX 2.3) of the libraries and one of the tool: library_bill and tool_bill.
set(cxx_library libstdc++)
if("c++" IN_LIST CMAKE_CXX_IMPLICIT_LINK_LIBRARIES)
  set(cxx_library libc++)
endif()
string(TIMESTAMP created "%Y-%m-%dT%H:%M:%SZ" UTC)  # of SOURCE_DATE_EPOCH where that is set

# bill_of_materials(NAME RESULT): what of the templates is said once.
function(bill_of_materials name result)
  # Each document has a name of its own in the world.
  string(UUID id NAMESPACE 6ba7b811-9dad-11d1-80b4-00c04fd430c8 TYPE SHA1
         NAME "${name} ${PROJECT_VERSION} ${CLI11_VERSION} ${nlohmann_json_VERSION} ${created}")
  set(head "\"spdxVersion\": \"SPDX-2.3\",
  \"dataLicense\": \"CC0-1.0\",
  \"SPDXID\": \"SPDXRef-DOCUMENT\",
  \"name\": \"${name}-${PROJECT_VERSION}\",
  \"documentNamespace\": \"https://spdx.org/spdxdocs/${name}-${PROJECT_VERSION}-${id}\",
  \"creationInfo\": {
    \"created\": \"${created}\",
    \"creators\": [\"Tool: cmake-${CMAKE_VERSION}\"]
  },")
  set(unknown "\"downloadLocation\": \"NOASSERTION\",
      \"filesAnalyzed\": false,
      \"copyrightText\": \"NOASSERTION\",
      \"licenseConcluded\": \"NOASSERTION\"")
  set(bill ${CMAKE_CURRENT_BINARY_DIR}/${name}.spdx.json)
  configure_file(cmake/${name}.spdx.json.in ${bill} @ONLY)
  set(${result} ${bill} PARENT_SCOPE)
endfunction()

bill_of_materials(zorgenreg64 library_bill)
if(ZORGENREG_TOOL)
  set(cli11_locator pkg:github/CLIUtils/CLI11@v${CLI11_VERSION})
  set(json_locator pkg:github/nlohmann/json@v${nlohmann_json_VERSION})
  bill_of_materials(zorreg tool_bill)
endif()
