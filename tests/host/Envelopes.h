#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

/// The compact form of the answers that every fresh host gives.
inline constexpr std::string_view kFreshVersion =
    R"({"command":8,"error":false,"errorMessage":"","lastError":0,"lastLowLevelError":0,)"
    R"("pinModuleName":"","missingPin":false,"invalidPin":false,"pinLength":0,"version":"1.1"})";
inline constexpr std::string_view kTooLong =
    R"({"command":-1,"error":true,"message":"Message too long"})";
inline constexpr std::string_view kInitialized =
    R"({"command":0,"error":false,"message":"InitializeComponent OK"})";
inline constexpr std::string_view kNotInitialized =
    R"({"command":2,"error":true,"message":"Not initialized"})";

/// The native mode's form of a compact one-level object whose strings hold no double quote.
std::string indented(std::string_view compact);

/// Processor time that a process has used, in seconds.
double processorSeconds(pid_t process);
