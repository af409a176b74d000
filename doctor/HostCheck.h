#pragma once

#include <string>

#include "doctor/Report.h"

/// Starts the host as a browser does, asks for its version and ends it. Nothing reaches the card.
void checkHost(Report& report, const std::string& path);
