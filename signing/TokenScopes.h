#pragma once

#include <pkcs11.h>

#include <optional>

/// The second half of a pair of PKCS#11 calls: ends on destruction what the caller has begun.
/// Scopes are declared in the order of the beginnings, so they end in the reverse order that the
/// standard asks for, on every path. The return value of the ending call is not tested.
template <auto End, typename Argument>
class [[nodiscard]] TokenScope {
 public:
  explicit TokenScope(Argument scopeArgument) : argument(scopeArgument) {}
  TokenScope(const TokenScope&) = delete;
  TokenScope& operator=(const TokenScope&) = delete;
  TokenScope(TokenScope&&) = delete;
  TokenScope& operator=(TokenScope&&) = delete;
  ~TokenScope() { end(); }

  /// Ends the pair now rather than at destruction.
  void end() {
    if (open) {
      open = false;
      End(argument);
    }
  }

  /// Never ends the pair.
  void leaveOpen() { open = false; }

 private:
  Argument argument;
  bool open = true;
};

using LibraryScope = TokenScope<C_Finalize, void*>;
using SessionScope = TokenScope<C_CloseSession, CK_SESSION_HANDLE>;
using LoginScope = TokenScope<C_Logout, CK_SESSION_HANDLE>;
using FindScope = TokenScope<C_FindObjectsFinal, CK_SESSION_HANDLE>;

/// An initialised token library and, where it could be opened, a session on it. The session closes
/// first, then the library is finalised.
struct TokenConnection {
  std::optional<LibraryScope> library;
  CK_SLOT_ID slot{};
  std::optional<SessionScope> sessionScope;
  CK_SESSION_HANDLE session = CK_INVALID_HANDLE;
};
