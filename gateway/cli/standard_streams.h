// The three descriptors that every process starts with.
#pragma once

namespace gateway::cli {

/// Puts /dev/null where descriptor 0, 1 or 2 is closed, so that no file that is opened later gets
/// its number and, with it, the texts meant for a person. Reading from a closed input and writing
/// to a closed output still fail. Comes before anything else is opened.
void holdStandardDescriptors();

/// Flushes standard output.
/// \param status  how the command ended otherwise
/// \return \p status, or ExitFailed after a complaint when it says success but some of the output,
///   now or earlier, could not be written.
int finishOutput(int status);

}  // namespace gateway::cli
