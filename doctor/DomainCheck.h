#pragma once

#include <string>

#include "doctor/Report.h"

/// What a page would send: the signed list, its signature (base64) and the page's address.
struct DomainQuestion {
  std::string domains;
  std::string signature;
  std::string page;
};

/// Judges a page as the host does, and tells the rule that decided.
void checkDomains(Report& report, const DomainQuestion& question);
