#include "grnt_store.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace zq::router {
namespace {

// "ZQRG" in the file header, so that a database of something else is
// recognised and left alone.
constexpr int kApplicationId = 0x5A515247;

constexpr const char* kSchema =
    "CREATE TABLE IF NOT EXISTS grnt_message(id INTEGER PRIMARY KEY, receiver TEXT NOT NULL,"
    " sender TEXT NOT NULL, block BLOB NOT NULL);"
    "CREATE TABLE IF NOT EXISTS grnt_result(id INTEGER PRIMARY KEY, sender TEXT NOT NULL,"
    " result INTEGER NOT NULL);"
    "CREATE TABLE IF NOT EXISTS grnt_meta(name TEXT PRIMARY KEY, value INTEGER NOT NULL);";

std::string Describe(sqlite3* db, const char* what) {
  return std::string(what) + ": " + sqlite3_errmsg(db);
}

// Bytes bound as a blob rather than a text.
struct Blob {
  const std::string& bytes;
};

// A prepared statement, finalized with the scope.
class Statement {
 public:
  Statement() = default;
  ~Statement() { sqlite3_finalize(stmt_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  bool Prepare(sqlite3* db, const char* sql) {
    return sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &stmt_, nullptr) == SQLITE_OK;
  }
  sqlite3_stmt* Get() const { return stmt_; }
  // Binds the values in order, steps once and resets; true on SQLITE_DONE.
  template <typename... Values>
  bool Run(const Values&... values) {
    int index = 0;
    (Bind(++index, values), ...);
    const int rc = sqlite3_step(stmt_);
    sqlite3_reset(stmt_);
    sqlite3_clear_bindings(stmt_);
    return rc == SQLITE_DONE;
  }

 private:
  void Bind(int index, std::uint64_t value) {
    sqlite3_bind_int64(stmt_, index, static_cast<sqlite3_int64>(value));
  }
  void Bind(int index, const std::string& text) {
    sqlite3_bind_text(stmt_, index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
  }
  void Bind(int index, const Blob& blob) {
    sqlite3_bind_blob(stmt_, index, blob.bytes.data(), static_cast<int>(blob.bytes.size()),
                      SQLITE_STATIC);
  }
  sqlite3_stmt* stmt_ = nullptr;
};

std::string ColumnText(sqlite3_stmt* stmt, int column) {
  const auto* text = sqlite3_column_blob(stmt, column);
  return std::string(static_cast<const char*>(text),
                     static_cast<std::size_t>(sqlite3_column_bytes(stmt, column)));
}

}  // namespace

struct CGrntStore::Statements {
  Statement addMessage, forgetMessage, addResult, forgetResult, setNextId;
};

std::unique_ptr<CGrntStore> CGrntStore::Open(const std::string& path, std::uint64_t fileLimit,
                                             std::string& error, bool& fatal) {
  fatal = false;
  sqlite3* db = nullptr;
  const int opened =
      sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  std::unique_ptr<CGrntStore> store(new CGrntStore(db));
  if (opened != SQLITE_OK) {
    error = Describe(db, "cannot open");
    return nullptr;
  }
  // One router per store: a second one would deliver the same messages.
  // The lock is flock(2), apart from SQLite's own fcntl locks.
  if (path != ":memory:") {
    store->lock_ = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (store->lock_ < 0 || flock(store->lock_, LOCK_EX | LOCK_NB) != 0) {
      fatal = store->lock_ >= 0 && errno == EWOULDBLOCK;
      error = fatal ? std::string("in use by another router") : "cannot lock the file";
      return nullptr;
    }
  }
  // The first read checks the file header before anything is written, so a
  // file that is not a database is refused untouched.
  sqlite3_stmt* probe = nullptr;
  int rc = sqlite3_prepare_v2(db,
                              "SELECT (SELECT count(*) FROM sqlite_schema), application_id"
                              " FROM pragma_application_id",
                              -1, &probe, nullptr);
  if (rc == SQLITE_OK) rc = sqlite3_step(probe);
  const bool empty = rc == SQLITE_ROW && sqlite3_column_int(probe, 0) == 0;
  const int appId = rc == SQLITE_ROW ? sqlite3_column_int(probe, 1) : 0;
  sqlite3_finalize(probe);
  if (rc != SQLITE_ROW) {
    const int code = sqlite3_errcode(db);
    fatal = code == SQLITE_NOTADB || code == SQLITE_CORRUPT;
    error = Describe(db, "cannot read");
    return nullptr;
  }
  if (!empty && appId != kApplicationId) {
    fatal = true;
    error =
        "the file is a database of something else (application id " + std::to_string(appId) + ")";
    return nullptr;
  }
  store->writable_ = sqlite3_db_readonly(db, "main") == 0;
  // FULL: in WAL mode each commit syncs the log before it returns, so an
  // answered post survives a power loss; NORMAL would sync only at
  // checkpoints and could lose the last commits.
  if (!store->Exec("PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;", error)) return nullptr;
  if (fileLimit != 0) {
    sqlite3_stmt* size = nullptr;
    std::uint64_t pageSize = 4096;
    if (sqlite3_prepare_v2(db, "PRAGMA page_size", -1, &size, nullptr) == SQLITE_OK &&
        sqlite3_step(size) == SQLITE_ROW) {
      pageSize = static_cast<std::uint64_t>(sqlite3_column_int64(size, 0));
    }
    sqlite3_finalize(size);
    const std::string pages = "PRAGMA max_page_count=" + std::to_string(fileLimit / pageSize) + ";";
    if (!store->Exec(pages.c_str(), error)) return nullptr;
  }
  if (store->writable_ && empty &&
      !store->Exec(("BEGIN;" + std::string(kSchema) +
                    "PRAGMA application_id=" + std::to_string(kApplicationId) + ";COMMIT;")
                       .c_str(),
                   error)) {
    store->Exec("ROLLBACK;", error);
    return nullptr;
  }
  if (!store->Prepare(error)) return nullptr;
  return store;
}

CGrntStore::CGrntStore(sqlite3* db) : db_(db) {}

CGrntStore::~CGrntStore() {
  statements_.reset();
  sqlite3_close(db_);
  // Only after SQLite is done with the file: closing a descriptor of it
  // drops every fcntl lock the process holds on it.
  if (lock_ >= 0) close(lock_);
}

bool CGrntStore::Exec(const char* sql, std::string& error) {
  char* message = nullptr;
  if (sqlite3_exec(db_, sql, nullptr, nullptr, &message) == SQLITE_OK) return true;
  error = message != nullptr ? message : sqlite3_errmsg(db_);
  sqlite3_free(message);
  return false;
}

bool CGrntStore::Prepare(std::string& error) {
  statements_ = std::make_unique<Statements>();
  Statements& s = *statements_;
  const bool ok =
      s.addMessage.Prepare(db_,
                           "INSERT INTO grnt_message(id, receiver, sender, block)"
                           " VALUES(?, ?, ?, ?)") &&
      s.forgetMessage.Prepare(db_, "DELETE FROM grnt_message WHERE id = ?") &&
      s.addResult.Prepare(db_, "INSERT INTO grnt_result(id, sender, result) VALUES(?, ?, ?)") &&
      s.forgetResult.Prepare(db_, "DELETE FROM grnt_result WHERE id = ?") &&
      s.setNextId.Prepare(db_,
                          "INSERT OR REPLACE INTO grnt_meta(name, value) VALUES('next_id', ?)");
  if (!ok) error = Describe(db_, "cannot prepare the statements");
  return ok;
}

bool CGrntStore::Load(std::vector<GrntStoredMessage>& messages,
                      std::vector<GrntStoredResult>& results, std::uint64_t& nextId,
                      std::string& error) {
  nextId = 1;
  const auto seen = [&nextId](std::uint64_t id) {
    if (id >= nextId) nextId = id + 1;
  };
  // Runs a query and hands each row to `row`; false on any failure.
  const auto each = [this, &error](const char* sql, const auto& row) {
    Statement query;
    int rc = query.Prepare(db_, sql) ? SQLITE_ROW : SQLITE_ERROR;
    while (rc == SQLITE_ROW && (rc = sqlite3_step(query.Get())) == SQLITE_ROW)
      row(query.Get());
    if (rc != SQLITE_DONE) error = Describe(db_, "cannot read the store");
    return rc == SQLITE_DONE;
  };
  return each("SELECT id, receiver, sender, block FROM grnt_message ORDER BY id",
              [&](sqlite3_stmt* q) {
                GrntStoredMessage m;
                m.id = static_cast<std::uint64_t>(sqlite3_column_int64(q, 0));
                m.receiver = ColumnText(q, 1);
                m.sender = ColumnText(q, 2);
                m.block = ColumnText(q, 3);
                seen(m.id);
                messages.push_back(std::move(m));
              }) &&
         each("SELECT id, sender, result FROM grnt_result ORDER BY id",
              [&](sqlite3_stmt* q) {
                GrntStoredResult r;
                r.id = static_cast<std::uint64_t>(sqlite3_column_int64(q, 0));
                r.sender = ColumnText(q, 1);
                r.result = static_cast<std::uint32_t>(sqlite3_column_int64(q, 2));
                seen(r.id);
                results.push_back(std::move(r));
              }) &&
         // Confirmed ids are gone from both tables; the kept counter makes
         // sure they are never given out again.
         each("SELECT value FROM grnt_meta WHERE name = 'next_id'", [&](sqlite3_stmt* q) {
           seen(static_cast<std::uint64_t>(sqlite3_column_int64(q, 0)) - 1);
         });
}

bool CGrntStore::Write(const std::vector<GrntChange>& changes, std::uint64_t nextId,
                       std::string& error) {
  Statements& s = *statements_;
  for (const GrntChange& change : changes) {
    bool ok = true;
    switch (change.kind) {
      case GrntChange::Kind::kAdd:
        ok = s.addMessage.Run(change.id, change.message->receiver, change.message->sender,
                              Blob{change.message->block});
        break;
      case GrntChange::Kind::kDeliver:
        ok =
            s.forgetMessage.Run(change.id) &&
            s.addResult.Run(change.id, change.result->sender, std::uint64_t{change.result->result});
        break;
      case GrntChange::Kind::kForgetResult:
        ok = s.forgetResult.Run(change.id);
        break;
    }
    if (!ok) {
      error = Describe(db_, "cannot write");
      return false;
    }
  }
  if (!s.setNextId.Run(nextId)) {
    error = Describe(db_, "cannot write");
    return false;
  }
  return true;
}

bool CGrntStore::Apply(const std::vector<GrntChange>& changes, std::uint64_t nextId,
                       std::string& error) {
  if (!Exec("BEGIN IMMEDIATE;", error)) return false;
  if (Write(changes, nextId, error) && Exec("COMMIT;", error)) return true;
  // A failed statement or commit may have ended the transaction already.
  if (sqlite3_get_autocommit(db_) == 0) {
    std::string ignored;
    Exec("ROLLBACK;", ignored);
  }
  return false;
}

}  // namespace zq::router
