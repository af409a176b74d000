#pragma once

#include <cert.h>
#include <keyhi.h>
#include <secdert.h>
#include <secdig.h>
#include <secitem.h>
#include <secport.h>

#include <memory>

/// Calls one NSS release function on the object a handle owns.
template <auto Release>
struct NssRelease {
  template <typename Object>
  void operator()(Object* object) const {
    Release(object);
  }
};

inline void freeArena(PLArenaPool* arena) { PORT_FreeArena(arena, PR_FALSE); }
inline void freeItem(SECItem* item) { SECITEM_FreeItem(item, PR_TRUE); }

using ArenaHandle = std::unique_ptr<PLArenaPool, NssRelease<freeArena>>;
/// An item on the NSS heap together with its bytes.
using ItemHandle = std::unique_ptr<SECItem, NssRelease<freeItem>>;
/// A text on the NSS heap.
using NssText = std::unique_ptr<char, NssRelease<PORT_Free>>;
using PublicKeyHandle = std::unique_ptr<SECKEYPublicKey, NssRelease<SECKEY_DestroyPublicKey>>;
using CertificateHandle = std::unique_ptr<CERTCertificate, NssRelease<CERT_DestroyCertificate>>;
using DigestInfoHandle = std::unique_ptr<SGNDigestInfo, NssRelease<SGN_DestroyDigestInfo>>;

/// Chunk size of every arena of the service, in bytes.
inline constexpr unsigned long kArenaChunkSize = DER_DEFAULT_CHUNKSIZE;

/// An item of our own whose bytes NSS allocates on its heap.
class HeapItem {
 public:
  HeapItem() = default;
  HeapItem(const HeapItem&) = delete;
  HeapItem& operator=(const HeapItem&) = delete;
  HeapItem(HeapItem&&) = delete;
  HeapItem& operator=(HeapItem&&) = delete;
  ~HeapItem() { SECITEM_FreeItem(&item, PR_FALSE); }

  SECItem* get() { return &item; }
  SECItem* operator->() { return &item; }
  /// True when there is at least one byte.
  [[nodiscard]] bool hasData() const { return item.len > 0; }

 private:
  SECItem item{};
};
