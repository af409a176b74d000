#pragma once

#include <cstddef>
#include <cstdint>

// What both ends of the conversation must agree on, in numbers; docs/protocol.md tells it in words.

/// Told by `Command::kGetVersion`.
inline constexpr const char* kProtocolVersion = "1.1";

/// What a request asks for.
enum class Command : std::int32_t {
  kNone = -1,  ///< no request that was understood
  kInitialize = 0,
  kExit = 1,
  kListCertificates = 2,
  kSetPin = 3,
  kGetCertificate = 4,
  kSignPkcs1 = 5,
  kPinChar = 6,
  kDeletePinChar = 7,
  kGetVersion = 8,
};

/// A native request's text is shorter than this, in bytes.
inline constexpr std::int32_t kNativeLengthLimit = 1000;

/// Browsers end the conversation at a native answer whose text is longer than this, in bytes.
inline constexpr std::size_t kNativeAnswerLimit = 1048576;
