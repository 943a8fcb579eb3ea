// Texts that hold tokens.
#pragma once

#include <string>

#include "library/platform/api.h"
#include "library/platform/scan_token.h"
#include "library/platform/token_map.h"

/// A text whose `%TOKEN%` placeholders can be replaced. For hosts that keep such texts of their
/// own; nothing in this library implements it. The order of the operations is part of the binary
/// interface.
class KAVI_API Replaceable {
 public:
  virtual ~Replaceable() = default;

  /// Whether the text holds a placeholder.
  virtual bool hasTokens() = 0;
  /// Replaces every placeholder by its value. \return false, with the text as it was, on failure.
  virtual bool replaceTokens(Kavi::TokenMap<Kavi::ScanToken>& tokens) = 0;
  /// Copies the present text. \return false on failure.
  virtual bool getText(std::string& text) = 0;
  /// Replaces the text. \return false on failure.
  virtual bool setText(const std::string& text) = 0;
};
