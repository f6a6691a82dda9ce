// The records and lines of a registry, one after the other.
#pragma once

#include "check_findings.h"
#include "file_content.h"

namespace tool {

// Checks the records of a registry and returns how many are whole. The files are only read.
std::uint64_t checkRecords(const RegistryFiles& files, const Checked& checked, Findings& findings);

}  // namespace tool
