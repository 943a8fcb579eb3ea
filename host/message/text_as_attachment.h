// Where an inserted text goes, process-wide.
#pragma once

namespace host::message {

/// True: a text that is inserted into a message becomes an attachment. Any thread.
void setTextAsAttachment(bool on);
bool isTextAsAttachment();

}  // namespace host::message
