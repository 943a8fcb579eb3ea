// Settings, logging and token replacement shared by every action.
#pragma once

#include <cstdarg>
#include <string>

#include "library/platform/api.h"
#include "library/platform/scan_token.h"
#include "library/platform/token_map.h"

class OvMsgMailMessage;

namespace Kavi {
class GlobalSetting;
class LogMsg;
}  // namespace Kavi

namespace library {
struct TokenRow;
}

/// The library-wide settings, the log and the tokens of templates. `init` writes, everything else
/// only reads: `init` must not overlap with any other call; after it every operation may be used
/// from any thread that may use the logger. Nothing is thrown. Texts that are handed out stay valid
/// until `init` runs again.
class ActionUtils {
 public:
  ActionUtils() = delete;

  /// Reads every setting anew; one that is missing gets its default.
  /// \param log  kept, and used by L1 to L3 for as long as the library is loaded.
  /// \return true, always: nothing stops the start-up.
  KAVI_API static bool init(Kavi::GlobalSetting& settings, Kavi::LogMsg& log);

  /// Charset in which modified text is written when nothing else decides ("us-ascii").
  KAVI_API static const char* getDefaultDstCharset();
  /// Charset of text that declares none ("us-ascii").
  KAVI_API static const char* getLocalCharset();
  /// Whether a mail's own charset goes before the default destination charset.
  KAVI_API static bool getUseMailCharsetFlag();
  /// Whether stamps are written in UTF-8.
  KAVI_API static bool getUseUTF8AsPreferForStampActionFlag();
  /// The strftime format of the date and time in notifications; empty before `init`.
  KAVI_API static const char* getNotifyTimeFormat();
  /// "yes" or "no", as set: whether that date is written in the product's own locale.
  KAVI_API static const char* getUseKaviLocaleForNotifyTime();

  /// Write one line at level 1 (failures), 2 (notices) or 3 (detail), cut to 2,047 characters. Does
  /// nothing before `init`, or when the log's level is lower.
  KAVI_API static void L1(const char* format, ...) noexcept __attribute__((format(printf, 1, 2)));
  KAVI_API static void L2(const char* format, ...) noexcept __attribute__((format(printf, 1, 2)));
  KAVI_API static void L3(const char* format, ...) noexcept __attribute__((format(printf, 1, 2)));

  /// Builds the lookup maps of the tokens anew; `InitActionLib` calls it last. No token is known
  /// before. A failure, which is logged, leaves the maps as they were.
  KAVI_API static void _build_token_string_table();
  /// The first row of the token table (library/tokens/token_table.h); a row with an empty text ends
  /// it.
  KAVI_API static const library::TokenRow* getTokenNames();
  /// The value of one token. A value that is computed is kept in \p tokens, which therefore must
  /// not be shared between threads meanwhile.
  /// \param tokenText  the token with both "%"
  /// \return a text in \p tokens, valid until that changes, or a static empty one; null when there
  ///   is no such token, and on failure, which is logged.
  KAVI_API static const char* getTokenValue(Kavi::TokenMap<Kavi::ScanToken>& tokens,
                                            const char* tokenText, const OvMsgMailMessage& msg);
  /// Copies \p text, up to its first NUL, with every known token replaced by its value up to its
  /// first NUL; what is no token stays. Takes time linear in the text and the values.
  /// \param result  replaced; must not be \p text
  /// \return false on failure, which is logged; \p result is then empty.
  KAVI_API static bool replaceTokens(Kavi::TokenMap<Kavi::ScanToken>& tokens,
                                     const std::string& text, const OvMsgMailMessage& msg,
                                     std::string& result);

 private:
  static void readDefaultDstCharset(Kavi::GlobalSetting& settings);
  static void readLocalCharset(Kavi::GlobalSetting& settings);
  static void readUseMailCharset(Kavi::GlobalSetting& settings);
  static void readUseUtf8ForStamp(Kavi::GlobalSetting& settings);
  static void readNotifyTime(Kavi::GlobalSetting& settings);
  static void write(int level, const char* format, std::va_list arguments) noexcept
      __attribute__((format(printf, 2, 0)));

  static std::string s_defaultDstCharset;
  static std::string s_localCharset;
  static bool s_useMailCharset;
  static bool s_useUtf8ForStamp;
  static std::string s_useKaviLocaleForNotifyTime;
  static std::string s_notifyTimeFormat;
  static Kavi::LogMsg* s_log;
};
