#include "host/message/signatures.h"

#include <string>
#include <string_view>

#include "host/message/ascii.h"
#include "host/message/message.h"
#include "host/message/transfer_encoding.h"
#include "host/message/walk.h"

namespace host::message {

namespace {

/// The protocol of a multipart/signed: the parameter, or, where a sender left it out, the type of
/// the part that holds the signature.
std::string signatureProtocol(const Entity& entity) {
  if (auto protocol = entity.contentTypeParameter("protocol")) return lowered(*protocol);
  const Entity* content = entity.firstChild();
  const Entity* signature = content == nullptr ? nullptr : content->nextSibling();
  return signature == nullptr ? std::string() : signature->contentType();
}

bool isSmimeSigned(const Entity& entity) {
  const std::string type = entity.contentType();
  if (type == "multipart/signed") {
    return signatureProtocol(entity).find("pkcs7") != std::string::npos;
  }
  if (type != "application/pkcs7-mime" && type != "application/x-pkcs7-mime") return false;
  const auto smimeType = entity.contentTypeParameter("smime-type");
  return smimeType && equalsIgnoreCase(trimmed(*smimeType), "signed-data");
}

bool hasLine(std::string_view text, std::string_view line, std::size_t& from) {
  for (std::size_t at = text.find(line, from); at != std::string_view::npos;
       at = text.find(line, at + 1)) {
    if (at == 0 || text[at - 1] == '\n') {
      from = at + line.size();
      return true;
    }
  }
  return false;
}

bool isClearSigned(const Entity& entity) {
  if (entity.kind() != OvMsgEntityKind::Leaf || !entity.contentType().starts_with("text/")) {
    return false;
  }
  std::string decoded;
  std::string_view text = entity.body();
  if (!isIdentity(transferEncodingOf(entity.transferEncoding()))) {
    decoded = entity.decodedContent();
    text = decoded;
  }
  std::size_t from = 0;
  return hasLine(text, "-----BEGIN PGP SIGNED MESSAGE-----", from) &&
         hasLine(text, "-----BEGIN PGP SIGNATURE-----", from);
}

bool isPgpSigned(const Entity& entity) {
  if (entity.contentType() == "multipart/signed") {
    return signatureProtocol(entity).find("pgp") != std::string::npos;
  }
  return isClearSigned(entity);
}

template <class Test>
bool anyOwnEntity(const Message& message, Test test) {
  for (const Entity* entity = message.firstEntity(); entity != nullptr;
       entity = nextOwnEntity(*entity)) {
    if (test(*entity)) return true;
  }
  return false;
}

}  // namespace

bool hasSmimeSignature(const Message& message) { return anyOwnEntity(message, isSmimeSigned); }
bool hasPgpSignature(const Message& message) { return anyOwnEntity(message, isPgpSigned); }

}  // namespace host::message
