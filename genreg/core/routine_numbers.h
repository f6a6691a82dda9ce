// Function numbers of the traced routines; a probe id is probeBase plus the number.
#pragma once

namespace genreg {

constexpr unsigned int probeBase = 0x082A0000u;

// Routines of this library: identifier, number, name in the log.
#define GENREG_ROUTINES(ROUTINE)                                            \
  ROUTINE(isFeatureSet, 2, "GenRegBase::isFeatureSet")                      \
  ROUTINE(setFeature, 3, "GenRegBase::setFeature")                          \
  ROUTINE(unsetFeature, 4, "GenRegBase::unsetFeature")                      \
  ROUTINE(openScan, 5, "GenRegFile::OpenScan")                              \
  ROUTINE(closeScan, 6, "GenRegFile::CloseScan")                            \
  ROUTINE(rewindScan, 7, "GenRegFile::Rewind")                              \
  ROUTINE(fileConstructor, 8, "GenRegFile::GenRegFile")                     \
  ROUTINE(fileDestructor, 9, "GenRegFile::~GenRegFile")                     \
  ROUTINE(closeRegFile, 11, "GenRegFile::CloseRegFile")                     \
  ROUTINE(lockRegistry, 14, "GenRegFile::LockRegistry")                     \
  ROUTINE(openRegFile, 15, "GenRegFile::OpenRegFile")                       \
  ROUTINE(unlockRegistry, 17, "GenRegFile::UnlockRegistry")                 \
  ROUTINE(getPosition, 19, "GenRegFile::getRegFilePosition")                \
  ROUTINE(setPosition, 20, "GenRegFile::setRegFilePosition")                \
  ROUTINE(getRegFilePath, 21, "GenRegFile::getRegFilePath")                 \
  ROUTINE(getTempFilePath, 22, "GenRegFile::getTempFilePath")               \
  ROUTINE(getCorruptFilePath, 23, "GenRegFile::getCorruptFilePath")         \
  ROUTINE(getLockFilePath, 24, "GenRegFile::getLockFilePath")               \
  ROUTINE(getBackupFilePath, 25, "GenRegFile::getBackupFilePath")           \
  ROUTINE(encodeLength, 26, "EncodeLength")                                 \
  ROUTINE(decodeLength, 27, "DecodeLength")                                 \
  ROUTINE(binAdd, 28, "GenRegBin::Add")                                     \
  ROUTINE(binDelete, 29, "GenRegBin::Delete")                               \
  ROUTINE(binChange, 30, "GenRegBin::Change")                               \
  ROUTINE(binGet, 31, "GenRegBin::Get")                                     \
  ROUTINE(binGetNext, 32, "GenRegBin::GetNext")                             \
  ROUTINE(binReadRecord, 33, "GenRegBin::ReadRecord")                       \
  ROUTINE(binVerifyUpdate, 34, "GenRegBin::VerifyUpdate")                   \
  ROUTINE(binWriteRecord, 35, "GenRegBin::WriteRecord")                     \
  ROUTINE(binCheckHooks, 36, "GenRegBin::CheckHooks")                       \
  ROUTINE(textConstructor, 37, "GenRegText::GenRegText")                    \
  ROUTINE(textDestructor, 38, "GenRegText::~GenRegText")                    \
  ROUTINE(textAdd, 39, "GenRegText::Add")                                   \
  ROUTINE(textDelete, 40, "GenRegText::Delete")                             \
  ROUTINE(textChange, 41, "GenRegText::Change")                             \
  ROUTINE(textGet, 42, "GenRegText::Get")                                   \
  ROUTINE(textGetNext, 43, "GenRegText::GetNext")                           \
  ROUTINE(nextToken, 45, "GenRegNextToken")                                 \
  ROUTINE(readLine, 46, "GenRegReadLine")                                   \
  ROUTINE(textVerifyUpdate, 47, "GenRegText::VerifyUpdate")                 \
  ROUTINE(writeLine, 48, "GenRegWriteLine")                                 \
  ROUTINE(makePrintable, 49, "GenRegMakePrintable")                         \
  ROUTINE(normalizeLine, 50, "GenRegNormalizeLine")                         \
  ROUTINE(textCheckHooks, 51, "GenRegText::CheckHooks")                     \
  ROUTINE(binVarValConstructor, 52, "GenRegBinVarVal::GenRegBinVarVal")     \
  ROUTINE(binVarValDestructor, 53, "GenRegBinVarVal::~GenRegBinVarVal")     \
  ROUTINE(binVarValPrintRecord, 54, "GenRegBinVarVal::PrintRecord")         \
  ROUTINE(binVarValCompareRecord, 55, "GenRegBinVarVal::CompareRecord")     \
  ROUTINE(binVarValValidateKey, 56, "GenRegBinVarVal::ValidateKey")         \
  ROUTINE(binVarValGetRecordLength, 57, "GenRegBinVarVal::GetRecordLength") \
  ROUTINE(binVarValGetRecordSize, 58, "GenRegBinVarVal::GetRecordSize")     \
  ROUTINE(varValConstructor, 68, "GenRegVarVal::GenRegVarVal")              \
  ROUTINE(varValDestructor, 69, "GenRegVarVal::~GenRegVarVal")              \
  ROUTINE(varValValidateKey, 71, "GenRegVarVal::ValidateKey")               \
  ROUTINE(varValCompareRecord, 72, "GenRegVarVal::CompareRecord")           \
  ROUTINE(varValUnpackRecord, 73, "GenRegVarVal::UnpackRecord")             \
  ROUTINE(varValPackRecord, 74, "GenRegVarVal::PackRecord")                 \
  ROUTINE(varValGetRecordSize, 75, "GenRegVarVal::GetRecordSize")           \
  ROUTINE(varValGetRecordLength, 76, "GenRegVarVal::GetRecordLength")       \
  ROUTINE(servicesConstructor, 77, "GenRegServices::GenRegServices")        \
  ROUTINE(servicesDestructor, 78, "GenRegServices::~GenRegServices")        \
  ROUTINE(servicesValidateKey, 79, "GenRegServices::ValidateKey")           \
  ROUTINE(servicesCompareRecord, 80, "GenRegServices::CompareRecord")       \
  ROUTINE(servicesUnpackRecord, 81, "GenRegServices::UnpackRecord")         \
  ROUTINE(servicesPackRecord, 82, "GenRegServices::PackRecord")             \
  ROUTINE(servicesGetRecordSize, 83, "GenRegServices::GetRecordSize")       \
  ROUTINE(servicesGetRecordLength, 84, "GenRegServices::GetRecordLength")   \
  ROUTINE(globalConstructor, 85, "GlobalReg::GlobalReg")                    \
  ROUTINE(globalValidateKey, 87, "GlobalReg::ValidateKey")                  \
  ROUTINE(globalCompareRecord, 88, "GlobalReg::CompareRecord")              \
  ROUTINE(globalGetRecordSize, 89, "GlobalReg::GetRecordSize")              \
  ROUTINE(globalGetRecordLength, 90, "GlobalReg::GetRecordLength")          \
  ROUTINE(globalGetPackedLength, 91, "GlobalReg::GetPackedLength")          \
  ROUTINE(globalPackRecord, 92, "GlobalReg::PackRecord")                    \
  ROUTINE(globalUnpackRecord, 93, "GlobalReg::UnpackRecord")                \
  ROUTINE(repairRegistry, 94, "GenRegFile::RepairRegistry")                 \
  ROUTINE(openServiceList, 99, "ossOpenServiceList")                        \
  ROUTINE(getNextService, 100, "ossGetNextService")                         \
  ROUTINE(closeServiceList, 101, "ossCloseServiceList")                     \
  ROUTINE(openInstanceList, 102, "ossOpenInstanceList")                     \
  ROUTINE(getNextInstance, 103, "ossGetNextInstance")                       \
  ROUTINE(closeInstanceList, 104, "ossCloseInstanceList")                   \
  ROUTINE(getServiceInfo, 105, "ossGetServiceInfo")                         \
  ROUTINE(getInstanceInfo, 106, "ossGetInstanceInfo")                       \
  ROUTINE(setServiceInfo, 107, "ossSetServiceInfo")                         \
  ROUTINE(setInstanceInfo, 108, "ossSetInstanceInfo")                       \
  ROUTINE(instanceListOpen, 135, "OpenInstanceList")                        \
  ROUTINE(instanceListClose, 136, "CloseInstanceList")                      \
  ROUTINE(instanceLookup, 137, "FindInstance")                              \
  ROUTINE(instanceListNext, 138, "NextInstance")                            \
  ROUTINE(serviceListNext, 139, "NextService")                              \
  ROUTINE(serviceListOpen, 140, "OpenServiceList")                          \
  ROUTINE(serviceListClose, 141, "CloseServiceList")                        \
  ROUTINE(nextCopyWithProfiles, 142, "ossNextCopyWithProfiles")             \
  ROUTINE(serviceLookup, 143, "FindService")                                \
  ROUTINE(getCopyPath, 144, "ossGetCopyPath")                               \
  ROUTINE(readCopyVersion, 145, "ossReadCopyVersion")                       \
  ROUTINE(copyHasZemProfiles, 146, "ossCopyHasZemProfiles")                 \
  ROUTINE(beginMany, 147, "GenRegFile::BeginUpdate")                        \
  ROUTINE(commitMany, 148, "GenRegFile::CommitUpdate")                      \
  ROUTINE(abandonMany, 149, "GenRegFile::AbandonUpdate")

enum class Function : unsigned int {
#define GENREG_FUNCTION(identifier, number, name) identifier = number,
  GENREG_ROUTINES(GENREG_FUNCTION)
#undef GENREG_FUNCTION
};

constexpr unsigned int probeOf(Function function) {
  return probeBase + static_cast<unsigned int>(function);
}

// Probe ids of the system-services operations, as a failed callee is named in the log.
#define GENREG_SYSTEM_PROBES(PROBE)                                \
  PROBE(probeFileOpen, 0x081A0002u, "OSSHFile::open")              \
  PROBE(probeFileClose, 0x081A0003u, "OSSHFile::close")            \
  PROBE(probeFileLock, 0x081A0009u, "OSSHFile::lock")              \
  PROBE(probeFileUnlock, 0x081A000Au, "OSSHFile::unlock")          \
  PROBE(probeFileDelete, 0x081A0013u, "ossFileDelete")             \
  PROBE(probeFileRename, 0x081A0016u, "ossFileRename")             \
  PROBE(probeSetPermissions, 0x081A0018u, "ossFileSetPermissions") \
  PROBE(probeDirectoryCreate, 0x081A0019u, "ossDirectoryCreate")   \
  PROBE(probeDirectoryName, 0x081A001Bu, "ossDirectoryName")       \
  PROBE(probeBaseName, 0x081A001Cu, "ossBaseName")                 \
  PROBE(probeFileGetInfo, 0x081A001Fu, "ossFileGetInfoV9")         \
  PROBE(probeMemAlloc, 0x081A0058u, "_ossMemAlloc")                \
  PROBE(probeMemFree, 0x081A0059u, "_ossMemFree")                  \
  PROBE(probeRegistryExport, 0x081A0100u, "RegistryExport")

#define GENREG_PROBE(identifier, probe, name) constexpr unsigned int identifier = probe;
GENREG_SYSTEM_PROBES(GENREG_PROBE)
#undef GENREG_PROBE

}  // namespace genreg
