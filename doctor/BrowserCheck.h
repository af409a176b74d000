#pragma once

#include <set>
#include <string>

#include "doctor/Report.h"

/// Looks for the host's manifest where each browser does, for all users and for this one, and
/// judges what it says
/// (https://developer.chrome.com/docs/extensions/develop/concepts/native-messaging).
///
/// @return the hosts that the good manifests name
std::set<std::string> checkBrowsers(Report& report);
