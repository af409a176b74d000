#pragma once

#include <pkcs11.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

using Bytes = std::vector<unsigned char>;
using Attributes = std::map<CK_ATTRIBUTE_TYPE, Bytes>;

/// Misbehaviour at the nth call of a function, or at every call (occurrence 0).
struct ScriptedAction {
  std::string verb;  ///< fail, print, exit, crash or lie
  std::string function;
  unsigned long occurrence;
  CK_ULONG value = 0;  ///< return value, exit status or false count
  std::string text;    ///< to print
};

/// A false attribute length.
struct LengthLie {
  CK_ATTRIBUTE_TYPE type;
  std::string when;
  CK_ULONG length;
  CK_OBJECT_HANDLE object;  ///< 0 is every object
};

/// What a fake token holds and how it misbehaves. One statement a line; '#' starts a comment line.
/// Numbers are decimal or 0x hexadecimal, `ones` is the all-ones value, some return values may be
/// written by their usual CKR_ names, an occurrence is a number from 1 or `*` for every call.
///
///     slots 7 9                                  slots with a token; `slots none`; default: slot 1
///     pin 1234                                   the right PIN; `pin *`: any PIN is
///     certificate 01ab hex 3082...               id and value; either may be `-` (empty)
///     key 01ab                                   private key, whose signatures are a fixed pattern
///                                                that follows from the data
///     signature 4096                             length of signatures; default 256
///     accept second C_Initialize                 default: CKR_CRYPTOKI_ALREADY_INITIALIZED
///     log pin                                    PIN text in the log; default: its length only
///     fail C_Sign 1 CKR_DEVICE_ERROR             returns this and does nothing
///     print C_Login * some text                  on standard output during the call
///     exit C_Sign 1 3                            ends the process with this status
///     crash C_Sign 1                             ends it with a segmentation fault
///     lie slots 1 1000                           count of slots at the nth C_GetSlotList
///     lie found 1 5                              count of objects at the nth C_FindObjects
///     lie signature * 5000                       signature length at the nth C_Sign
///     lie search 1000                            a search goes on until so many objects were given
///     lie length CKA_VALUE asked 0 [object 2]    `asked` (null buffer), `read` (buffer) or `both`;
///                                                objects are numbered from 1 as they are listed
struct TokenScript {
  std::vector<CK_SLOT_ID> slots{1};
  std::string pin = "1234";
  std::vector<Attributes> objects;
  CK_ULONG signatureLength = 256;
  bool acceptSecondInitialize = false;
  bool logPin = false;
  std::vector<ScriptedAction> actions;
  std::vector<LengthLie> lengthLies;
  CK_ULONG searchLie = 0;

  /// Throws std::invalid_argument naming the line that is not understood.
  static TokenScript parse(std::string_view text);
};
