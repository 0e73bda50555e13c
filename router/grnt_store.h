// The durable store of guaranteed-delivery (GRNT) messages: one SQLite file
// under the data directory, in WAL mode with synchronous=FULL, so that a
// commit that returned is on the disk before anyone is told about it. The
// router keeps everything the store holds in memory as well; the store is
// read once at start and written in batches, one transaction per pass of
// the event loop.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct sqlite3;

namespace zq::router {

// The file name of the store inside the data directory.
inline constexpr const char* kGrntStoreFile = "zqrouter-grnt.db";

// A message waiting for its receiver's confirmation. `block` is the block
// as delivered in 0x4010: "Zq_From" and "Zq_GrntId" filled in.
struct GrntStoredMessage {
  std::uint64_t id = 0;
  std::string receiver;  // application name on this node
  std::string sender;    // application name on this node
  std::string block;
};

// A delivery result waiting for its sender's confirmation.
struct GrntStoredResult {
  std::uint64_t id = 0;
  std::string sender;
  std::uint32_t result = 0;
};

// One change of a batch.
struct GrntChange {
  enum class Kind { kAdd, kDeliver, kForgetResult };
  Kind kind = Kind::kAdd;
  std::uint64_t id = 0;
  const GrntStoredMessage* message = nullptr;  // kAdd
  const GrntStoredResult* result = nullptr;    // kDeliver: replaces the message
};

class CGrntStore {
 public:
  // Opens or creates the store at `path` (":memory:" for one that lives
  // with the process). `fileLimit` caps the file's size in bytes (0: no cap);
  // past it writes fail as on a full disk. On failure nullptr, `error` says
  // why, and `fatal` is set when the file exists but is not a store the
  // router may touch (not a database, corrupt): the router must not start.
  static std::unique_ptr<CGrntStore> Open(const std::string& path, std::uint64_t fileLimit,
                                          std::string& error, bool& fatal);
  ~CGrntStore();
  CGrntStore(const CGrntStore&) = delete;
  CGrntStore& operator=(const CGrntStore&) = delete;

  // False when the file could only be opened for reading.
  bool Writable() const { return writable_; }
  // Everything stored, in id order, and the first id never given out.
  bool Load(std::vector<GrntStoredMessage>& messages, std::vector<GrntStoredResult>& results,
            std::uint64_t& nextId, std::string& error);
  // Writes the changes and `nextId` in one transaction, committed (and
  // synced) on return. On failure nothing of it stays and `error` says why.
  bool Apply(const std::vector<GrntChange>& changes, std::uint64_t nextId, std::string& error);

 private:
  explicit CGrntStore(sqlite3* db);
  bool Exec(const char* sql, std::string& error);
  bool Prepare(std::string& error);
  bool Write(const std::vector<GrntChange>& changes, std::uint64_t nextId, std::string& error);

  sqlite3* db_;
  int lock_ = -1;  // flock'ed: one router per store
  bool writable_ = true;
  struct Statements;
  std::unique_ptr<Statements> statements_;
};

}  // namespace zq::router
