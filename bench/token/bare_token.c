// The limits that the host's token commands are measured against: the same PKCS#11 calls on the
// same module. Requests are frames holding "list", "names", "get" or "sign"; "get" and "sign" use
// the CKA_ID of the token's signing certificate. Each is answered with a frame of one byte once the
// calls are done, but "names" with the listing: it also decodes what it reads, as a listing must.
//
//   bare_token MODULE PIN
#include <dlfcn.h>
#include <pkcs11.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "bench/token/bare_names.h"

enum { kMessageSize = 64, kSignatureSize = 2048 };

static CK_FUNCTION_LIST_PTR token;
static CK_BYTE id[] = {0x01};

static void check(CK_RV rv, const char* call) {
  if (rv != CKR_OK) {
    fprintf(stderr, "bare_token: %s: 0x%lx\n", call, rv);
    exit(EXIT_FAILURE);
  }
}

static CK_SESSION_HANDLE begin(void) {
  CK_ULONG count = 0;
  check(token->C_Initialize(NULL), "C_Initialize");
  check(token->C_GetSlotList(CK_TRUE, NULL, &count), "C_GetSlotList");
  CK_SLOT_ID* slots = calloc(count + 1, sizeof *slots);
  check(slots != NULL ? token->C_GetSlotList(CK_TRUE, slots, &count) : CKR_HOST_MEMORY,
        "C_GetSlotList");
  const CK_SLOT_ID slot = slots[0];
  free(slots);
  CK_SESSION_HANDLE session = CK_INVALID_HANDLE;
  check(token->C_OpenSession(slot, CKF_SERIAL_SESSION, NULL, NULL, &session), "C_OpenSession");
  return session;
}

static void end(CK_SESSION_HANDLE session) {
  check(token->C_CloseSession(session), "C_CloseSession");
  check(token->C_Finalize(NULL), "C_Finalize");
}

static void findInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE* search, CK_ULONG count) {
  check(token->C_FindObjectsInit(session, search, count), "C_FindObjectsInit");
}

// The next object of the search, or CK_INVALID_HANDLE.
static CK_OBJECT_HANDLE findNext(CK_SESSION_HANDLE session) {
  CK_OBJECT_HANDLE object = CK_INVALID_HANDLE;
  CK_ULONG count = 0;
  check(token->C_FindObjects(session, &object, 1, &count), "C_FindObjects");
  return count > 0 ? object : CK_INVALID_HANDLE;
}

// Lengths first, then the values into buffers of these lengths.
static void readAttributes(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                           CK_ATTRIBUTE* attributes, CK_ULONG count) {
  check(token->C_GetAttributeValue(session, object, attributes, count), "C_GetAttributeValue");
  for (CK_ULONG i = 0; i < count; ++i) {
    attributes[i].pValue = malloc(attributes[i].ulValueLen + 1);
  }
  check(token->C_GetAttributeValue(session, object, attributes, count), "C_GetAttributeValue");
}

// Into the listing where there is one.
static void list(struct Text* listing) {
  CK_OBJECT_CLASS class = CKO_CERTIFICATE;
  CK_CERTIFICATE_TYPE type = CKC_X_509;
  CK_ATTRIBUTE search[] = {{CKA_CLASS, &class, sizeof class},
                           {CKA_CERTIFICATE_TYPE, &type, sizeof type}};
  const CK_SESSION_HANDLE session = begin();
  findInit(session, search, 2);
  for (CK_OBJECT_HANDLE object = findNext(session); object != CK_INVALID_HANDLE;
       object = findNext(session)) {
    CK_ATTRIBUTE wanted[] = {{CKA_ID, NULL, 0}, {CKA_VALUE, NULL, 0}};
    readAttributes(session, object, wanted, 2);
    if (listing != NULL) {
      appendRecord(listing, wanted[1].pValue, wanted[1].ulValueLen, wanted[0].pValue,
                   wanted[0].ulValueLen);
    }
    free(wanted[0].pValue);
    free(wanted[1].pValue);
  }
  check(token->C_FindObjectsFinal(session), "C_FindObjectsFinal");
  end(session);
}

static void get(void) {
  CK_OBJECT_CLASS class = CKO_CERTIFICATE;
  CK_CERTIFICATE_TYPE type = CKC_X_509;
  CK_ATTRIBUTE search[] = {{CKA_CLASS, &class, sizeof class},
                           {CKA_CERTIFICATE_TYPE, &type, sizeof type},
                           {CKA_ID, id, sizeof id}};
  const CK_SESSION_HANDLE session = begin();
  findInit(session, search, 3);
  CK_ATTRIBUTE wanted = {CKA_VALUE, NULL, 0};
  readAttributes(session, findNext(session), &wanted, 1);
  free(wanted.pValue);
  check(token->C_FindObjectsFinal(session), "C_FindObjectsFinal");
  end(session);
}

static void sign(char* pin) {
  // DigestInfo of a SHA-256 digest of zeros: the algorithm's DER, then the 32 bytes.
  CK_BYTE digestInfo[51] = {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                            0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
  CK_OBJECT_CLASS class = CKO_PRIVATE_KEY;
  CK_ATTRIBUTE search[] = {{CKA_CLASS, &class, sizeof class}, {CKA_ID, id, sizeof id}};
  const CK_SESSION_HANDLE session = begin();
  check(token->C_Login(session, CKU_USER, (CK_UTF8CHAR_PTR)pin, strlen(pin)), "C_Login");
  findInit(session, search, 2);
  const CK_OBJECT_HANDLE key = findNext(session);
  check(token->C_FindObjectsFinal(session), "C_FindObjectsFinal");
  CK_MECHANISM mechanism = {CKM_RSA_PKCS, NULL, 0};
  check(token->C_SignInit(session, &mechanism, key), "C_SignInit");
  CK_BYTE signature[kSignatureSize];
  CK_ULONG length = sizeof signature;
  check(token->C_Sign(session, digestInfo, sizeof digestInfo, signature, &length), "C_Sign");
  check(token->C_Logout(session), "C_Logout");
  end(session);
}

static void answer(const char* text, size_t size) {
  static struct Text frame;
  const uint32_t length = (uint32_t)size;
  frame.length = 0;
  append(&frame, &length, sizeof length);
  append(&frame, text, size);
  if (write(STDOUT_FILENO, frame.bytes, frame.length) < 0) {
    exit(EXIT_FAILURE);
  }
}

int main(int argc, char** argv) {
  void* module = argc > 2 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : NULL;
  CK_C_GetFunctionList getFunctionList = NULL;
  if (module != NULL) {
    *(void**)&getFunctionList = dlsym(module, "C_GetFunctionList");
  }
  check(getFunctionList != NULL ? getFunctionList(&token) : CKR_GENERAL_ERROR, "dlopen");
  struct Text listing = {NULL, 0, 0};
  uint32_t length = 0;
  char request[kMessageSize];
  while (read(STDIN_FILENO, &length, sizeof length) == sizeof length && length <= sizeof request &&
         read(STDIN_FILENO, request, length) == (ssize_t)length) {
    switch (request[0]) {
      case 'l':
        list(NULL);
        break;
      case 'n':
        if (listing.bytes == NULL) {
          startNss();
        }
        listing.length = 0;
        list(&listing);
        answer(listing.bytes, listing.length);
        continue;
      case 'g':
        get();
        break;
      default:
        sign(argv[2]);
    }
    answer("0", 1);  // which is JSON too
  }
  return EXIT_SUCCESS;
}
