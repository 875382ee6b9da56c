#pragma once
// Status codes of the catalogue's public operations.

namespace kx::catalogue::status {

constexpr int kOk = 0;
constexpr int kNothingRead = 1;      // the document held no package, stack or section
constexpr int kInvalidInput = -1;    // null or inconsistent input
constexpr int kTargetMismatch = -5;  // processor or device class exclude the entry
constexpr int kOsMismatch = -6;      // operating system excludes the entry
constexpr int kIoFailure = -8;       // read, list or write failure
constexpr int kUnsupportedCdfVersion = -11;
constexpr int kStackMismatch = -16;
constexpr int kDirectoryMissing = -17;

}  // namespace kx::catalogue::status
