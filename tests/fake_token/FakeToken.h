#pragma once

#include <map>
#include <optional>
#include <set>
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
///     C_Initialize arguments=null -> 0x0
///     C_GetSlotList tokenPresent=1 list=null count=10 -> 0x0 count=1
///     C_OpenSession slot=1 flags=0x4 application=null notify=null -> 0x0 session=1
///     C_Login session=1 user=1 pinLength=4 -> 0xa0
///     C_FindObjectsInit session=1 0x0=0100000000000000 0x80=0000000000000000 -> 0x0
///     C_FindObjects session=1 maximum=1 -> 0x0 count=1 object=2
///     C_GetAttributeValue session=1 object=2 0x102=null:0 0x11=buffer:811 -> 0x0 0x102:1 0x11:811
///     C_SignInit session=1 mechanism=0x1 parameter=null:0 key=3 -> 0x0
///     C_Sign session=1 data=3031... signature=buffer:2048 -> 0x0 length=256
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
  /// The log lines of one function.
  std::vector<std::string> callsOf(std::string_view function) const;

  bool isInitialized() const { return initialized; }
  std::size_t openSessions() const { return sessions.size(); }

  // What follows is for the C_* functions.

  struct Session {
    std::optional<std::vector<CK_OBJECT_HANDLE>> found;  ///< a search under way: what is left of it
    CK_ULONG given = 0;                                  ///< objects given by that search
    std::optional<CK_OBJECT_HANDLE> signingKey;
  };

  /// Counts the call, does what the script wants of it, gives the return value it forces, if any.
  std::optional<CK_RV> beginCall(const std::string& function, const std::string& arguments);
  /// The count that the script wants told at this call, else the true one.
  CK_ULONG countToTell(const std::string& function, CK_ULONG count) const;
  void record(const std::string& line);
  void readEnvironment();
  Session* session(CK_SESSION_HANDLE handle);
  const Attributes* object(CK_OBJECT_HANDLE handle) const;
  std::vector<CK_OBJECT_HANDLE> search(const Attributes& wanted) const;
  /// PKCS#1 v1.5 signature by the key's PEM file, else the pattern; empty when the file is
  /// unusable.
  Bytes signature(CK_OBJECT_HANDLE key, const Bytes& data) const;

  TokenScript current;
  std::string currentText;
  bool followsEnvironment = false;
  bool initialized = false;
  bool loggedIn = false;
  CK_SESSION_HANDLE lastSession = 0;
  std::map<CK_SESSION_HANDLE, Session> sessions;

 private:
  FakeToken() = default;

  std::map<std::string, unsigned long> occurrences;
  std::vector<std::string> lines;
};
