#include <ptzd/Error.h>

namespace ptzd {

std::string RunTimeErrorText(RunTimeError number) {
  switch (number) {
    case ErrorInvalidCall:
      return "Invalid procedure call or argument";
    case ErrorOverflow:
      return "Overflow";
    case ErrorSubscript:
      return "Subscript out of range";
    case ErrorDivisionByZero:
      return "Division by zero";
    case ErrorTypeMismatch:
      return "Type mismatch";
    case ErrorPathAccess:
      return "Path/File access error";
    case ErrorObjectNotSet:
      return "Object variable or With block variable not set";
    case ErrorCannotCreateObject:
      return "Component can't create object";
    case ErrorDuplicateKey:
      return "This key is already associated with an element of this collection";
  }
  return "Application-defined or object-defined error";
}

void Raise(RunTimeError number) { throw Error(number, RunTimeErrorText(number)); }

}  // namespace ptzd
