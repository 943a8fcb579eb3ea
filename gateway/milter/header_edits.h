// What has to be told to a mail system so that one header becomes another.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace gateway::milter {

/// One header field as the milter protocol knows it: the value is everything behind the colon,
/// leading blanks included, without its final line break, and folds are LF and white space.
struct HeaderLine {
  std::string name;
  std::string value;

  bool operator==(const HeaderLine&) const = default;
};

/// One operation on a header.
struct HeaderEdit {
  enum class Kind { Change, Delete, Insert };

  Kind kind = Kind::Change;
  std::string name;
  /// Change, Delete: which of the fields of that name (letters without regard to case), from 1.
  /// Insert: the place among all fields that the milter sees, from 0, plus one for the trace field
  /// that the mail system put in front and hides. A place behind the last field appends.
  std::size_t index = 0;
  std::string value;  ///< empty with Delete

  bool operator==(const HeaderEdit&) const = default;
};

/// Takes a header apart. \param header  fields with CR LF or LF line breaks, no blank line
/// \return nothing when a line in it is no field.
std::optional<std::vector<HeaderLine>> splitHeader(std::string_view header);

/// The operations that make \p before become \p after, to be applied one after the other: changes,
/// then deletions from the bottom up, then insertions from the top down. As few as possible for up
/// to 256 of them; beyond that what lies between the first and the last difference is replaced.
/// Takes time linear in the header, and quadratic in the number of operations up to that bound.
std::vector<HeaderEdit> headerEdits(const std::vector<HeaderLine>& before,
                                    const std::vector<HeaderLine>& after);

}  // namespace gateway::milter
