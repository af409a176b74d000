#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/fake_token/TokenScript.h"

/// A PKCS#11 token that does what a script says (see TokenScript) and logs every call. Its state
/// keeping is a real module's: nothing works before C_Initialize, sessions and searches must be
/// open, private keys are found only after a login.
///
/// A test program links `fake_token_core` and speaks to `instance()`. The module `libfake_token.so`
/// reads the script from the file that FAKE_TOKEN_SCRIPT names, at every C_Initialize, and appends
/// the log to the file that FAKE_TOKEN_LOG names (and keeps none itself, so that it can serve for
/// ever); counts of occurrences go on while the script's text stays the same.
///
/// A log line is the function, its arguments, "->", the return value and what was given back:
///
///     C_GetSlotList tokenPresent=1 list=null count=10 -> 0x0 count=1
///     C_Login session=1 user=1 pinLength=4 -> 0xa0
///     C_FindObjectsInit session=1 0x0=0100000000000000 0x80=0000000000000000 -> 0x0
///     C_GetAttributeValue session=1 object=2 0x102=null:0 0x11=buffer:811 -> 0x0 0x102:1 0x11:811
class FakeToken {
 public:
  static FakeToken& instance();

  /// Back to an empty, uninitialised token with an empty log.
  void reset() { *this = FakeToken(); }
  /// Replaces the script and restarts the counts; log and PKCS#11 state stay.
  void script(std::string_view text);

  const std::vector<std::string>& log() const { return lines; }
  /// The log's function names alone, for checks of the order of calls.
  std::vector<std::string> calls() const;

  std::size_t openSessions() const { return sessions.size(); }

  // What follows is for the C_* functions.

  struct Session {
    std::optional<std::vector<CK_OBJECT_HANDLE>> found;  ///< a search under way: what is left of it
    bool signing = false;
  };

  /// Counts the call, does what the script wants of it, gives the return value it forces, if any.
  std::optional<CK_RV> beginCall(const std::string& function, const std::string& arguments);
  /// The count of `what` ("slots") that the script wants told this time, else the true one.
  CK_ULONG countToTell(const std::string& what, CK_ULONG count);
  void record(const std::string& line);
  /// Terminates with a message on a script that it does not understand.
  void readEnvironment() noexcept;
  /// Null for no such object.
  const Attributes* object(CK_OBJECT_HANDLE handle) const;
  std::vector<CK_OBJECT_HANDLE> search(const Attributes& wanted) const;

  TokenScript current;
  bool initialized = false;
  bool loggedIn = false;
  CK_SESSION_HANDLE lastSession = 0;
  std::map<CK_SESSION_HANDLE, Session> sessions;

 private:
  FakeToken() = default;
  /// The word that a statement has for this call or count, if one is about it.
  std::optional<std::string> wanted(const char* verb, const std::string& what) const;

  std::string currentText;
  bool followsEnvironment = false;
  std::map<std::string, unsigned long> occurrences;
  std::vector<std::string> lines;
};
