#pragma once

#include <pkcs11.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

using Bytes = std::vector<unsigned char>;
using Attributes = std::map<CK_ATTRIBUTE_TYPE, Bytes>;

/// Something to do at the nth call of a function, or at every call.
struct ScriptedAction {
  enum class Kind { kFail, kPrint, kExit, kCrash };
  Kind kind;
  std::string function;
  unsigned long occurrence;  ///< counted from 1; 0 is every call
  unsigned long value = 0;   ///< the return value, or the exit status
  std::string text;
};

/// A false count: of slots, of objects found, or of signature bytes.
struct CountLie {
  std::string function;
  unsigned long occurrence;
  CK_ULONG count;
};

/// A false attribute length, told when the length is asked, when the value is read, or both.
struct LengthLie {
  CK_ATTRIBUTE_TYPE type;
  bool whenAsked;
  bool whenRead;
  CK_ULONG length;
  CK_OBJECT_HANDLE object;  ///< 0 is every object
};

/// What a fake token holds and how it misbehaves. One statement a line; '#' starts a comment line.
/// Numbers are decimal or 0x hexadecimal, `ones` is the all-ones value, return values may also be
/// written by their usual CKR_ names, an occurrence is a number from 1 or `*` for every call.
///
///     slots 7 9                                  slots with a token; `slots none`; default: slot 1
///     pin 1234                                   the right PIN; `pin *`: any PIN is
///     certificate 01ab file /path/cert.der       id, value from a file ...
///     certificate 01ab hex 3082... [type 1]      ... or in place; an id may be `-` (empty)
///     key 01ab [/path/rsa.pem]                   private key; without a file, signatures are a
///                                                fixed pattern that follows from the data
///     signature 4096                             length of pattern signatures; default 256
///     accept second C_Initialize                 default: CKR_CRYPTOKI_ALREADY_INITIALIZED
///     log pin                                    PIN text in the log; default: its length only
///     fail C_Sign 1 CKR_DEVICE_ERROR             returns this and does nothing
///     print C_Login * some text                  on standard output during the call
///     exit C_Sign 1 3                            ends the process with this status
///     crash C_Sign 1                             ends it with a segmentation fault
///     lie slots 1 1000                           count of slots at the nth C_GetSlotList
///     lie found 1 5                              count of objects at the nth C_FindObjects
///     lie signature * 5000                       signature length at the nth C_Sign
///     lie search 1000                            searches go on until so many objects were given
///     lie length CKA_VALUE asked 0 [object 2]    `asked` (null buffer), `read` (buffer) or `both`;
///                                                objects are numbered from 1 as they are listed
struct TokenScript {
  std::vector<CK_SLOT_ID> slots{1};
  std::string pin = "1234";
  std::vector<Attributes> objects;
  std::map<std::string, std::string> keyFiles;  ///< PEM files by the bytes of the CKA_ID
  CK_ULONG patternSignatureLength = 256;
  bool acceptSecondInitialize = false;
  bool logPin = false;
  std::vector<ScriptedAction> actions;
  std::vector<CountLie> countLies;
  std::vector<LengthLie> lengthLies;
  std::optional<CK_ULONG> searchLie;

  /// Throws std::invalid_argument naming the line that is not understood.
  static TokenScript parse(std::string_view text);
};
