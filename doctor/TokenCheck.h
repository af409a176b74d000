#pragma once

#include "doctor/Report.h"

/// Looks at the PKCS#11 module, the reader service, the readers, the tokens and the certificates of
/// the token that the host would use, with the host's own steps: no login, nothing is written.
void checkToken(Report& report);
