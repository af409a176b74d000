#pragma once

#include <pkcs11.h>

#include <initializer_list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

using Bytes = std::vector<unsigned char>;
using Attributes = std::map<CK_ATTRIBUTE_TYPE, Bytes>;

/// What a fake token holds and how it misbehaves. One statement a line; words are separated by
/// spaces. Numbers are decimal or 0x hexadecimal, `ones` is the all-ones value, some constants may
/// be written by name, an occurrence is a number from 1 or `*` for every call.
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
///     throw C_Sign 1                             lets an exception out
///     hang C_Sign 1                              never returns
///     fork C_Sign 1                              goes on in this process and in a child
///     exhaust C_Sign 1                           allocates too much, catches that: CKR_HOST_MEMORY
///     print C_Login * word                       on standard output during the call
///     exit C_Sign 1 3                            ends the process with this status
///     crash C_Sign 1                             ends it with a segmentation fault
///     lie slots 1 1000                           count of slots at the nth C_GetSlotList
///     lie found 1 5                              count of objects at the nth C_FindObjects
///     lie signature * 5000                       signature length at the nth C_Sign
///     lie search 1000                            a search goes on until so many objects were given
///     lie length CKA_VALUE asked 0 object 2      `asked` (null buffer), `read` (buffer) or `both`;
///                                                objects are numbered from 1 as they are listed;
///                                                without one, at every object
struct TokenScript {
  using Words = std::vector<std::string>;

  /// Throws std::invalid_argument naming the line that is not understood.
  static TokenScript parse(std::string_view text);

  /// Of the statements that begin with these words, what follows.
  std::vector<Words> after(std::initializer_list<std::string_view> beginning) const;
  /// The word after it in the last that begins so.
  std::string value(std::initializer_list<std::string_view> beginning, std::string absent) const;
  std::vector<CK_SLOT_ID> slots() const;

  std::vector<Attributes> objects;
  std::vector<Words> statements;  ///< the others
};

CK_ULONG number(const std::string& word);
