// Run-time errors: the standard description of each error number.
#include "vb/Failure.h"

#include <utility>

namespace vb {

const char* StandardDescription(int number) {
  switch (number) {
    case 3: return "Return without GoSub";
    case 5: return "Invalid procedure call or argument";
    case 6: return "Overflow";
    case 7: return "Out of memory";
    case 9: return "Subscript out of range";
    case 10: return "This array is fixed or temporarily locked";
    case 11: return "Division by zero";
    case 13: return "Type mismatch";
    case 14: return "Out of string space";
    case 28: return "Out of stack space";
    case 35: return "Sub or Function not defined";
    case 48: return "Error in loading DLL";
    case 51: return "Internal error";
    case 52: return "Bad file name or number";
    case 53: return "File not found";
    case 54: return "Bad file mode";
    case 55: return "File already open";
    case 57: return "Device I/O error";
    case 58: return "File already exists";
    case 59: return "Bad record length";
    case 61: return "Disk full";
    case 62: return "Input past end of file";
    case 63: return "Bad record number";
    case 67: return "Too many files";
    case 68: return "Device unavailable";
    case 70: return "Permission denied";
    case 71: return "Disk not ready";
    case 74: return "Can't rename with different drive";
    case 75: return "Path/File access error";
    case 76: return "Path not found";
    case 91: return "Object variable or With block variable not set";
    case 92: return "For loop not initialized";
    case 93: return "Invalid pattern string";
    case 94: return "Invalid use of Null";
    default: return "Application-defined or object-defined error";
  }
}

Failure::Failure(int number) : Failure(number, StandardDescription(number)) {}

Failure::Failure(int number, std::string description)
    : std::runtime_error(description), number_(number), description_(std::move(description)) {}

void Raise(int number) { throw Failure(number); }

}  // namespace vb
