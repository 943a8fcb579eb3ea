// The three descriptors that every process starts with.
#pragma once

#include <string>

namespace gateway::cli {

/// Puts /dev/null where descriptor 0, 1 or 2 is closed, so that no file that is opened later gets
/// its number and, with it, the texts meant for a person. Reading from a closed input and writing
/// to a closed output still fail. Comes before anything else is opened.
void holdStandardDescriptors();

/// From now on writing where nobody reads any more is an error and not the end of the process: a
/// server that goes away must not take the messages behind it with it. For commands that send.
void ignoreBrokenPipes();

/// A change was made that the rest of the output only reports: whoever cannot be told that must not
/// take it for a failure. A pipe that breaks is an error from now on.
/// \param change  "store /x: applied, now at revision 7"
void noteChange(const std::string& change);

/// Flushes standard output.
/// \param status  how the command ended otherwise
/// \return \p status, or ExitFailed after a complaint when it says success but some of the output,
///   now or earlier, could not be written. The complaint says what was done all the same.
int finishOutput(int status);

}  // namespace gateway::cli
