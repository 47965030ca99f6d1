#include "h264parser/exception.h"

namespace corvane::H264PARSER {

void Raise(const char* message) { throw new cException(message); }

}  // namespace corvane::H264PARSER
