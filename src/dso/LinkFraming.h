#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace mervasto {

// How the link cuts the byte stream from the instrument into replies and
// blocks. Pure functions over the bytes received so far, so that the socket
// code only waits and these decide.

// The header of a binary block: "#", a digit and eight length digits.
inline constexpr size_t kBlockHeaderBytes = 10;

// The longest text reply taken: a reply that runs on past it without a line
// end is a fault, not an answer.
inline constexpr size_t kMaxReplyBytes = 64 * 1024;

enum class ReplyState { NeedMore, Complete, TooLong };

// A text reply is complete once a line end (CR or LF) has arrived, or once
// something has arrived and the quiet time has passed without more. Only the
// bytes from `scanned` on are looked at, and `scanned` is moved past them, so
// that a reply arriving in many pieces costs one pass over its bytes.
ReplyState ScanReply(std::string_view pending, size_t& scanned, bool quietTimePassed, size_t maxBytes = kMaxReplyBytes);

// Takes the reply off the front of pending: up to the first CR or LF (a
// CR LF pair is consumed as one line end), or all of it when there is none.
// The text is cut at maxLength characters (a negative maxLength counts as 0).
std::string TakeReplyLine(std::string& pending, int32_t maxLength);

enum class BlockHeaderState {
    NeedMore,  // fewer than ten bytes, and nothing yet says it is not a block
    Block,     // a good header; length holds the payload byte count
    NotBlock,  // the reply is something else (text, garbage)
    TooLong,   // a good header announcing more than the longest record
};

struct BlockHeader {
    BlockHeaderState state = BlockHeaderState::NeedMore;
    int64_t length = 0;                      // payload bytes announced (Block and TooLong)
    size_t headerBytes = kBlockHeaderBytes;  // where the payload begins
};

// Judges the start of pending as a block header. A reply that does not begin
// with "#" is judged NotBlock as soon as its line end has arrived or the
// quiet time has passed, without waiting for ten bytes.
BlockHeader ParseBlockHeader(std::string_view pending, bool quietTimePassed, int64_t maxPayloadBytes);

// The same for a definite-length block of any header: "#", a digit n from 1
// to 9 and n length digits ("#9000250000" from the SCPI instruments). "#0"
// (a block of unknown length) is not one the link can check, so NotBlock.
BlockHeader ParseDefiniteBlockHeader(std::string_view pending, bool quietTimePassed, int64_t maxPayloadBytes);

// A numeric reply: empty, or a number after optional blanks (what Val reads
// as more than its default).
bool LooksNumeric(std::string_view reply);

// A reply that is a number and nothing else (blanks around it allowed):
// an optional sign, digits with an optional point, an optional exponent.
bool IsNumberText(std::string_view reply);

// The first bytes of a reply for a message: printable ASCII as it stands,
// anything else as \xNN.
std::string PrintableBytes(std::string_view bytes, size_t limit);

}  // namespace mervasto
