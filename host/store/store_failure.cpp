#include "host/store/store_failure.h"

#include "host/core/text_escape.h"

namespace host::store {

namespace {

bool isServer(const std::string& location) { return location.starts_with("postgresql:"); }

const char* remedyOnServer(StoreError error) {
  switch (error) {
    case StoreError::Unavailable:
      return "check that the server runs, that it can be reached, and that it has the database and "
             "the schema";
    case StoreError::Busy:
      return "look for a program that keeps the store locked or takes up the server's connections";
    case StoreError::Full:
      return "make room on the disk of the server";
    case StoreError::ReadOnly:
      return "name the server that takes changes, not a copy of it";
    case StoreError::Permission:
      return "check the user's name and password, and that the user owns the database (createdb -O "
             "USER DATABASE) or may use what is in it";
    case StoreError::Damaged:
      return "name a database of its own, or restore the store from a backup";
    case StoreError::InputOutput:
      return "check the disk and the log of the server";
    default:
      return nullptr;
  }
}

const char* remedyFor(StoreError error) {
  switch (error) {
    case StoreError::Unavailable:
      return "check that the path is right and its disk is mounted";
    case StoreError::Busy:
      return "look for a program that keeps the store locked";
    case StoreError::Full:
      return "make room on the disk of the store";
    case StoreError::ReadOnly:
      return "make the store's file and folder, and their disk, writable";
    case StoreError::Permission:
      return "let this user read and write the store's file and its folder";
    case StoreError::Damaged:
      return "name a file of its own, or restore the store from a backup";
    case StoreError::TooNew:
      return "use the version that wrote the store, or a later one";
    case StoreError::InputOutput:
      return "check the disk and the system's log";
    default:
      return nullptr;
  }
}

}  // namespace

std::string failureText(const std::string& doing, const std::string& location, StoreError error,
                        const std::string& detail) {
  std::string text = doing + ", store " + core::printable(location) + ": " + storeErrorText(error);
  if (!detail.empty()) text += " (" + core::printable(detail) + ")";
  const char* remedy = isServer(location) ? remedyOnServer(error) : nullptr;
  if (remedy == nullptr) remedy = remedyFor(error);
  if (remedy != nullptr) text += std::string("; ") + remedy;
  return text;
}

}  // namespace host::store
