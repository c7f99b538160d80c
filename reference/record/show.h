#ifndef ZUSKUX_REFERENCE_RECORD_SHOW_H_
#define ZUSKUX_REFERENCE_RECORD_SHOW_H_

#include <ostream>

#include "reference/record/recording_reader.h"

namespace reference {

/// Prints the rest of a recording, one line per entry: seconds since its start, direction ("===>"
/// to the HAL, "<===" from it, "----" neither), and the entry. A request shows the printable
/// message's own rendering, or protobuf's text form in the recording's schema if this program's
/// schema does not know all of the message. Control characters appear as '?'.
///
/// Puts the recorded interfaces into the process's interface table. If the recording is damaged,
/// prints what precedes the damage, then throws `RecordingError`.
void ShowRecording(RecordingReader* recording, std::ostream* out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_RECORD_SHOW_H_
