#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kolt/compression.h"
#include "kolt/constants.h"
#include "kolt/encryption.h"
#include "kolt/export.h"
#include "kolt/rate_controller.h"

/// How a deduplicating store is reached from this node.
enum D2T_Access_Mode { D2T_Access_Auto = 0, D2T_Access_LAN_Base = 1, D2T_Access_RPC = 2 };

/**
 * A client of one storage pool: named objects below one root, written once, read at any offset.
 *
 * Keys are relative names of components separated by '/': no empty component, none that is "." or "..", no control
 * characters, each at most 255 bytes and the key at most 1024. A component that begins with ".unfinished-" is the
 * drivers' own. An operation on any other key fails with EINVAL.
 *
 * Errors: an operation that fails gives null, false or -1 with errno set, and has logged one line at LM_ERROR with the
 * operation, the key and the reason; callers pass it on silently. Not logged are ENOENT of open() and ECANCELED:
 * whether these are failures is the caller's to say. errno is EINVAL (key), ENOENT, EEXIST (commit() on a key that
 * exists, without Options::overwrite), ENOMEM, ECANCELED, or what the storage said (EIO, ENOSPC, EDQUOT, EACCES, ...).
 *
 * Repetition: a client of make_client_io() rides out failures that may pass, under Options::max_seconds_retry; a
 * failure that comes out is final for that object.
 *
 * Threads: all operations may be called from any thread. One Writer belongs to one thread at a time; a Reader may be
 * read by several threads at once. The client outlives its writers and readers.
 */
class TESSARIN_API Client_IO_Base {
 public:
  /// The client's settings. Plain values; a driver takes a copy. Keys and extra options are wiped when they go.
  struct TESSARIN_API Options {
    typedef std::map<unsigned int, std::string> node_addresses_type;
    typedef std::map<std::string, std::string> extra_options_type;

    bool overwrite = false;  ///< whether commit() may replace an object
    int socket_timeout_seconds = CLIENT_IO_SOCKET_TIMEOUT;
    size_t max_seconds_retry = CLIENT_IO_MAX_SECONDS_RETRY;
    size_t resumption_buffer_size = CLIENT_IO_RESUMPTION_BUF_SIZE;  ///< bytes
    bool forward = false;
    Rate_Limits rate_limits;  ///< of one client, or shared: writes keep to the dest limits, reads to the src limits
    Compression_Method compression_method = COMPR_NONE;  ///< applied by a deduplicating store only
    int compression_level = 0;
    Encryption_Algorithm encryption_algorithm = ENCRYPT_NONE;
    unsigned char key[32] = {};
    size_t key_len = 0;
    unsigned char iv[16] = {};
    size_t iv_len = 0;
    size_t dedup_chunk_size = 0;        ///< bytes; 0 leaves it to the store
    size_t dedup_max_memory_usage = 0;  ///< bytes; 0 leaves it to the store
    bool server_side_dedup = false;
    bool flush_after_write = true;  ///< whether commit() makes the object durable before it is visible
    std::string access_key;
    std::string secret_key;
    std::string preferred_source_address;
    D2T_Access_Mode d2t_access_mode = D2T_Access_Auto;
    node_addresses_type node_addresses;
    extra_options_type extra_options;
    std::vector<std::string> scan_initiators;

    ~Options();

    /// Sets or replaces an option by name. Options that a driver does not know have no effect.
    void set_extra_option(const char* name, const std::string& value) { extra_options[name] = value; }
  };

  /// One object as list() sees it.
  struct Object_Info {
    std::string key;
    uint64_t size = 0;  ///< bytes
  };

  /**
   * An object in the making. It is invisible until commit(); one that is destroyed without a successful commit() leaves
   * nothing behind, but for what a crash leaves, which sweep() finds.
   */
  class TESSARIN_API Writer {
   public:
    virtual ~Writer() = default;
    /// Appends @a n bytes. After false the object can only be destroyed, or resumed: every later call fails with the
    /// first errno and logs nothing more.
    [[nodiscard]] virtual bool write(const void* data, size_t n) = 0;
    /// Makes the object durable and then visible under its key, at once and as a whole. When true comes back it
    /// survives a power cut. After false nothing of it remains, but where it could be resumed: then it goes with the
    /// writer.
    [[nodiscard]] virtual bool commit() = 0;
    /// Bytes written so far.
    virtual uint64_t size() const = 0;

    // For Retrying_Client_IO. A driver that rides out failures itself has no need of them, nor have other callers.

    /// Hands the first @a n bytes over to the storage for good: no failure that passes can take them back. May wait for
    /// what is under way. Errors as of write().
    [[nodiscard]] virtual bool settle(uint64_t n);
    /// After a failure that may pass: makes the writer usable again.
    /// @param settled  bytes that a successful settle() was told.
    /// @return from where on the bytes have to be written again, not below @a settled; size() is that as well. -1 with
    ///   errno, not logged, if it can't be; ENOTSUP: never.
    [[nodiscard]] virtual int64_t resume(uint64_t settled);
  };

  /// A finished object. Its bytes never change.
  class TESSARIN_API Reader {
   public:
    virtual ~Reader() = default;
    /// Reads @a n bytes from @a offset. Fewer come only at the end of the object, 0 at or behind it. -1 with errno on
    /// failure.
    [[nodiscard]] virtual ssize_t read(uint64_t offset, void* to, size_t n) = 0;
    /// Bytes of the whole object, as they were when it was opened.
    virtual uint64_t size() const = 0;
  };

  /// Called per object; false ends the listing.
  typedef std::function<bool(const Object_Info&)> List_Callback;

  virtual ~Client_IO_Base() = default;

  /// Begins an object. Several writers of one key may exist; the first commit() wins. Null on failure.
  [[nodiscard]] virtual std::unique_ptr<Writer> create(const std::string& key) = 0;

  /// Opens a finished object. Null on failure; ENOENT, not logged, where there is none.
  [[nodiscard]] virtual std::unique_ptr<Reader> open(const std::string& key) = 0;

  /**
   * Calls @a each for every finished object whose key begins with @a prefix, each exactly once, in byte order of the
   * keys. Memory is bounded by the widest directory. The callback may remove the object that it is called for. Nothing
   * below the root, or no root, is an empty list.
   *
   * @retval false  failed, or the callback gave false (then errno is ECANCELED); the callback may have been called
   * before.
   */
  [[nodiscard]] virtual bool list(const std::string& prefix, const List_Callback& each) = 0;

  /// Removes an object for good. True as well where there was none, so that a removal may be repeated.
  [[nodiscard]] virtual bool remove(const std::string& key) = 0;

  /**
   * Removes what writers of processes that died have left below @a prefix, and directories that hold nothing.
   * Objects and the writers of living processes are not touched.
   * @param prefix  ends in '/', or is empty for all.
   */
  [[nodiscard]] virtual bool sweep(const std::string& prefix) = 0;

  /**
   * Ends the waits of this client, from any thread: reads, writes and commits under way or begun later fail with
   * ECANCELED within a second. One-way. list(), remove() and sweep() still work, for cleaning up.
   */
  virtual void cancel() = 0;
};
