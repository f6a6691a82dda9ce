// zorgenreg64: small registries of configuration records in files, changed so that no committed
// record is ever lost. This header gives the whole registry side.
//
// A flavour object (for instance GenRegBinVarVal) is one registry handle: construct it on a path,
// then Add, Change, Delete and Get records, or walk them with OpenScan, GetNext and CloseScan. A
// handle serves one thread at a time; handles, threads and processes coordinate through file locks.
// No operation throws; each returns a code of genreg_codes.h, 0 is success. For example:
//
//   unsigned int code = 0;
//   GenRegBinVarVal registry("settings.reg", &code);  // opens nothing yet
//   BinVarValRecord record{"Timeout", 30, "seconds"};
//   if (code == 0) code = registry.Add(BINVARVAL_VARIABLE, &record);  // is on the disk then
//   if (code != 0) std::fprintf(stderr, "%s\n", registry.getLastCause());
//
//   if (registry.OpenScan() == 0) {
//     BinVarValRecord found{};
//     while (registry.GetNext(0, &record, &found) == 0) std::puts(found.Variable);
//     (void)registry.CloseScan();
//   }
//
// What the operations return, and what they leave behind then, is said at GenRegFile; many changes
// with one commit are GenRegFile::BeginUpdate.
#pragma once

#include "genreg_binary.h"
#include "genreg_binvarval.h"
#include "genreg_codes.h"
#include "genreg_global.h"
#include "genreg_handle.h"
#include "genreg_services.h"
#include "genreg_text.h"
#include "genreg_varval.h"

// Marks the library as one of the product's own; always 0, nothing in the library reads it.
extern "C" {
extern GENREG_API unsigned int sqlzThisIsAZORLibrary;
}
