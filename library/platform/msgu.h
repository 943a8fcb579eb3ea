// Message utilities: the operations on messages and entities that the actions use most.
//
// Null messages and entities are accepted everywhere and answered with the failure result.
#pragma once

#include <list>
#include <string>

#include "library/platform/api.h"

class OvMsgEntity;
class OvMsgMailMessage;

namespace msgu {

/// The top-level entity; null for a message without one.
KAVI_API OvMsgEntity* getRootEntity(OvMsgMailMessage* msg);

/// The value of the first field named \p name, unfolded and trimmed. \return false, with \p value
/// empty, when there is none.
KAVI_API bool getHeader(OvMsgEntity* entity, const char* name, std::string& value);

/// Sets the first field named \p name, adding one at the end of the header when there is none.
/// \param charset  as in OvMsgHeader::setValue; null writes the bytes as they stand.
/// \return false, with the entity as it was, when the name is no field name (RFC 5322 section
///   3.6.8) or the value cannot be written.
KAVI_API bool setHeader(OvMsgEntity* entity, const char* name, const char* value,
                        const char* charset);

/// The header of the mail as text: every field of the root entity as it stands.
KAVI_API bool getHeaders(OvMsgMailMessage* msg, std::string& text);

/// The envelope recipients, without brackets: in \p text separated by ";", in \p list one to an
/// element, in envelope order; both are replaced.
KAVI_API bool getRcpt(OvMsgMailMessage* msg, std::string& text, std::list<std::string>& list);

/// Sets the envelope recipients from addresses separated by ";"; blank entries are passed over.
/// \param append  true adds them to the present ones, false replaces those.
/// \return false, with the envelope as it was, when one is no address.
KAVI_API bool setRcpt(OvMsgMailMessage* msg, const char* text, bool append);

/// The charset that the first text part declares, lower-cased, of those that are known and in which
/// ASCII letters are their own bytes; null when none does. Valid until the message changes.
KAVI_API const char* getCharset(OvMsgMailMessage* msg);

/// The subject in UTF-8. Bytes that declare no charset are read in \p mailCharset when it is given
/// and fits, then in \p sourceCharset.
KAVI_API bool getSubject(OvMsgMailMessage* msg, const char* sourceCharset, const char* mailCharset,
                         std::string& subject);

/// The value of the "X-Mail-ID" field; null when there is none. Valid until the message changes.
KAVI_API const char* getXMailId(OvMsgMailMessage* msg);

/// Appends every entity whose content type is \p type to \p found: "application/ms-tnef", or the
/// subtype alone ("ms-tnef").
/// \param nested  true looks into nested messages too.
/// \return false when the lookup itself failed.
KAVI_API bool findContentType(OvMsgMailMessage* msg, const char* type,
                              std::list<OvMsgEntity*>& found, bool nested);

/// Whether \p entity is in the message's tree now. The pointer is compared, never followed.
KAVI_API bool existEntity(OvMsgMailMessage* msg, OvMsgEntity* entity);

/// Whether \p entity is what a reader sees as the mail's body: an inline text without a file name.
KAVI_API bool isBody(OvMsgMailMessage* msg, OvMsgEntity* entity);

/// Replaces the content of a root entity by an empty text in \p charset.
KAVI_API bool removeRootEntity(OvMsgEntity* entity, const char* charset);

/// Removes \p entity and every entity around it that is left without a part. The second argument
/// is reserved, "".
KAVI_API bool removeEntityAndDummyParent(OvMsgEntity* entity, const char* reserved);

/// Converts a NUL-terminated text between charsets.
/// \param error  receives 0 or an OVMSGERR code.
/// \param lossy  true writes "?" for what cannot be converted, false fails then.
/// \return true on success; otherwise \p out is empty.
KAVI_API bool conv(const char* text, const char* fromCharset, const char* toCharset,
                   std::string& out, int& error, bool lossy);

/// The same into a buffer of \p size bytes, the NUL included.
/// \return \p out, or null on failure; \p out is then the empty string.
KAVI_API char* conv(const char* text, const char* fromCharset, const char* toCharset, char* out,
                    unsigned int size, int& error, bool lossy);

/// \p text (UTF-8) as RFC 2047 words of at most 75 characters in \p charset, or in UTF-8 where that
/// cannot carry it; as it stands when it can stand between quotes. No double quote or backslash is
/// in the result.
/// \return owned, to be released with `OvMsg_FreeHeaderValue`; null with \p error set on failure.
KAVI_API char* genRfc2047(const char* text, const char* charset, int& error);

}  // namespace msgu
