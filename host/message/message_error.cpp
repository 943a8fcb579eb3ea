#include "library/platform/ov_msg_error.h"

namespace OVMSGERR {

const char* I2A(int code) {
  switch (code) {
    case Ok:
      return "success";
    case InvalidArgument:
      return "invalid argument";
    case OutOfMemory:
      return "out of memory";
    case NotFound:
      return "not found";
    case UnknownCharset:
      return "unknown charset";
    case MalformedText:
      return "text is malformed in its charset";
    case UnencodableText:
      return "text cannot be carried in the charset or encoding";
    case BufferTooSmall:
      return "buffer too small";
    case MalformedAddress:
      return "malformed mail address";
    case NoBody:
      return "no place for the text";
    case ForeignEntity:
      return "entity is not part of the message";
    case NotSupported:
      return "not supported";
    case WriteFailed:
      return "the receiver refused the message";
    case LimitExceeded:
      return "limit exceeded";
    default:
      return "unknown error";
  }
}

}  // namespace OVMSGERR
