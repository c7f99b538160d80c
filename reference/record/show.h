#ifndef ZUSKUX_REFERENCE_RECORD_SHOW_H_
#define ZUSKUX_REFERENCE_RECORD_SHOW_H_

#include <ostream>

#include "reference/record/recording_reader.h"

namespace reference {

/// Prints the rest of a recording, a line for each entry: seconds since its start, direction
/// ("===>" to the HAL, "<===" from it, "----" neither), what it is. A request shows the printable
/// message's own rendering, or protobuf's text form by the recording's schema where this program's
/// schema does not know all of the message. Control characters appear as '?'.
///
/// Puts the recorded interfaces into the process's interface table. Throws `RecordingError`, with
/// what precedes the damage printed.
void ShowRecording(RecordingReader* recording, std::ostream* out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_RECORD_SHOW_H_
