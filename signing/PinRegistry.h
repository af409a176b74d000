#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "signing/SecureWipe.h"

/// What is known about the PIN of one module. Every copy wipes its PIN text when it is replaced or
/// destroyed.
///
/// There are no move members on purpose: a moved-from string may keep the text in its small-string
/// buffer, so a move is a copy whose source is wiped by its own destructor.
struct PinInfoStruct {  // NOLINT(cppcoreguidelines-special-member-functions)
  PinInfoStruct() = default;
  PinInfoStruct(const PinInfoStruct&) = default;
  PinInfoStruct& operator=(const PinInfoStruct& other);
  ~PinInfoStruct() { wipe(pin); }

  /// The PIN as the user gave it; empty when none is known.
  std::string pin;
  /// The token rejected this PIN.
  bool invalid = false;
  /// Rejected logins; survives a change of the PIN.
  std::int32_t retries = 0;
};

/// The PINs of the process by module name, in byte-wise order of the names. It outlives every
/// service object, so that a page that initialises again need not ask the user again. Not locked:
/// one thread serves all requests.
extern std::map<std::string, PinInfoStruct> gPines;

/// True when some module's PIN is empty, whether or not it is also flagged invalid.
bool MissingPin();

/// True when some module's PIN is flagged invalid.
bool InvalidPin();
