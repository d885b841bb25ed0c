// What the reader of picture files answers. It has read a foreign file and may do anything by now: nothing
// that it says is believed.
#pragma once

#include <string>

#include "core/api.h"
#include "host/image/codec/reader_protocol.h"
#include "host/image/image_reader.h"

namespace ovhost {

enum class Received { kAnswer, kNothing, kTooLate };

/// Waits for an answer, and takes the file that comes with it (else -1), which is the caller's to close.
/// `seconds` are those in which this process runs: while it is stopped none pass.
OV_API Received ReceiveAnswer(int socket, double seconds, ReaderAnswer& answer, int& file);

/// The pixels that an answer promises, of `mostBytes` at most. Null with the reason in `problem` where a
/// number is out of range, or where the file doesn't hold them, unchangeable from now on.
OV_API DecodedImage TakeAnswer(const ReaderAnswer& answer, int file, std::uint64_t mostBytes,
                               std::string& problem);

}  // namespace ovhost
