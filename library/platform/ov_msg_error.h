// Error codes of the message library.
#pragma once

#include "library/platform/api.h"

namespace OVMSGERR {

/// 0 is success; every operation of the message library that returns an int returns one of these.
enum Code : int {
  Ok = 0,
  InvalidArgument = 1,  ///< a null or malformed argument
  OutOfMemory = 2,
  NotFound = 3,         ///< no such entity, header or recipient
  UnknownCharset = 4,   ///< no converter by that name
  MalformedText = 5,    ///< bytes that are not text in the charset given
  UnencodableText = 6,  ///< the charset cannot carry a character of the text
  BufferTooSmall = 7,
  MalformedAddress = 8,  ///< not a mail address, or one with control bytes
  NoBody = 9,            ///< there is no place for the text
  ForeignEntity = 10,    ///< the entity belongs to another message, or was removed
  NotSupported = 11,
  WriteFailed = 12,    ///< the receiver of a rendered message refused bytes
  LimitExceeded = 13,  ///< the message is larger or deeper than the limits allow
};

/// The text of a code, in English; never null, valid forever. Unknown codes have a text too.
KAVI_API const char* I2A(int code);

}  // namespace OVMSGERR
