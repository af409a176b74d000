// What a listing must do with each certificate that it has read, with the calls of NSS that the
// host makes and nothing around them: the record is decoded with its e-mail addresses, key id and
// key usage, and what can sign now is told with its issuer, subject and id.
#pragma once

#include <stddef.h>

struct Text {
  char* bytes;
  size_t length;
  size_t room;
};

void startNss(void);

void append(struct Text* text, const void* bytes, size_t size);

/// Appends "issuer|subject|base64 of the id", after a bar where it is not the first, for a
/// certificate that can sign now. Bytes that are no certificate end the program.
void appendRecord(struct Text* listing, unsigned char* der, size_t derSize, unsigned char* id,
                  size_t idSize);
