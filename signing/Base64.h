#pragma once

#include <span>
#include <string>
#include <string_view>

#include "signing/NssHandles.h"

/// Decodes standard base64 with NSS; null, with the NSPR error set, when the text is not base64.
ItemHandle decodeBase64(std::string_view text);

/// What NSS makes of the bytes, line breaks (CR LF after each 64 characters) included; empty when
/// NSS returns nothing.
std::string encodeBase64(std::span<unsigned char> bytes);
