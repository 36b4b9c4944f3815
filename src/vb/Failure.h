// A run-time error of the kind the language run-time raises ("Type mismatch", "Overflow", ...).
// Routines that imitate the run-time throw it; callers that mimic an error handler catch it and
// read its number and description, e.g. to write them to the error log.
#pragma once

#include <stdexcept>
#include <string>

namespace vb {

class Failure : public std::runtime_error {
 public:
  // The standard description for `number` ("Type mismatch" for 13, "Overflow" for 6, ...);
  // a number without a standard text gets "Application-defined or object-defined error".
  explicit Failure(int number);
  // A failure with a description of the caller's own (e.g. a table-engine message).
  Failure(int number, std::string description);

  int Number() const { return number_; }
  // Same text as what().
  const std::string& Description() const { return description_; }

 private:
  int number_;
  std::string description_;
};

// The standard description for a run-time error number (see Failure(int)).
const char* StandardDescription(int number);

// Throws Failure(number). Never returns.
[[noreturn]] void Raise(int number);

// Well-known error numbers.
inline constexpr int kInvalidCall = 5;        // "Invalid procedure call or argument"
inline constexpr int kOverflow = 6;           // "Overflow"
inline constexpr int kOutOfMemory = 7;        // "Out of memory"
inline constexpr int kSubscript = 9;          // "Subscript out of range"
inline constexpr int kDivisionByZero = 11;    // "Division by zero"
inline constexpr int kTypeMismatch = 13;      // "Type mismatch"
inline constexpr int kBadFileNumber = 52;     // "Bad file name or number"
inline constexpr int kFileNotFound = 53;      // "File not found"
inline constexpr int kBadFileMode = 54;       // "Bad file mode"
inline constexpr int kFileAlreadyOpen = 55;   // "File already open"
inline constexpr int kDeviceIo = 57;          // "Device I/O error"
inline constexpr int kFileExists = 58;        // "File already exists"
inline constexpr int kDiskFull = 61;          // "Disk full"
inline constexpr int kPastEnd = 62;           // "Input past end of file"
inline constexpr int kPermissionDenied = 70;  // "Permission denied"
inline constexpr int kPathFileAccess = 75;    // "Path/File access error"
inline constexpr int kPathNotFound = 76;      // "Path not found"
inline constexpr int kInvalidPattern = 93;    // "Invalid pattern string"

}  // namespace vb
