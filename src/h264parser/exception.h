// The one error type of the stream parser. It is made on the heap and thrown by
// pointer; whoever catches the pointer deletes the object. Its text is for a
// debugger only: nothing in the library shows it.
#pragma once

#include <string>

namespace corvane::H264PARSER {

class cException {
 public:
  explicit cException(const char* message) : message(message) {}
  const std::string& Message() const { return message; }

 private:
  std::string message;
};

// Throws a new cException carrying `message`.
[[noreturn]] void Raise(const char* message);

}  // namespace corvane::H264PARSER
