#include "store/store.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <sqlite3.h>

#include <fmt/format.h>

#include "base/text.h"

namespace tavrik::store {

namespace {

constexpr int kApplicationId = 0x54564B53; // "TVKS", in the database's header
constexpr int kPageSize = 4096;            // bytes; a piece wastes half a page
constexpr int kWaitMilliseconds = 5000;    // for another program that has the store open
constexpr int kLargestPiece = 64 << 20;    // bytes
constexpr int kMostValueBytes = kLargestPiece + 4096;

// The database's user version: the format's, and in the upper half the extractor's.
constexpr int kExtractorPlace = 16; // bits
constexpr int64_t kUserVersion = kFormatVersion | int64_t{kExtractorVersion} << kExtractorPlace;

// The tables, as SQLite keeps their text. A database with anything else is refused.
constexpr std::string_view kTables[] = {
    "CREATE TABLE fault(path TEXT PRIMARY KEY, reason TEXT NOT NULL, size INTEGER, time INTEGER) WITHOUT ROWID",
    "CREATE TABLE piece(id INTEGER PRIMARY KEY, bytes BLOB NOT NULL)",
    "CREATE TABLE segment(id INTEGER PRIMARY KEY, rows INTEGER NOT NULL, gone BLOB)",
};

// Segments have ids up to this one, so that the ids of their pieces fit.
constexpr int64_t kLargestSegment = INT64_MAX / kMostPieces - 1;

std::string_view TextOf(const unsigned char *text, int length) {
    return {reinterpret_cast<const char *>(text), static_cast<std::size_t>(length)};
}

std::string PackGone(const std::vector<bool> &is_gone) {
    std::string bits((is_gone.size() + 7) / 8, '\0');
    for (std::size_t row = 0; row < is_gone.size(); ++row)
        if (is_gone[row])
            bits[row / 8] = static_cast<char>(bits[row / 8] | 1 << row % 8);
    return bits;
}

std::vector<bool> UnpackGone(std::span<const uint8_t> bits, std::size_t rows) {
    std::vector<bool> is_gone(std::min(rows, bits.size() * 8));
    for (std::size_t row = 0; row < is_gone.size(); ++row)
        is_gone[row] = (bits[row / 8] >> row % 8 & 1) != 0;
    return is_gone;
}

} // namespace

std::size_t SegmentEntry::live() const {
    return rows - static_cast<std::size_t>(std::ranges::count(is_gone, true));
}

// The connection and its statements, each prepared once.
class Store::Database {
public:
    explicit Database(std::string name) : name_(std::move(name)) {}

    ~Database() {
        for (const auto &[text, statement] : statements_)
            sqlite3_finalize(statement);
        sqlite3_close(connection_);
    }

    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    void Open(const char *file, int flags) {
        const int code = sqlite3_open_v2(file, &connection_, flags | SQLITE_OPEN_NOMUTEX, nullptr);
        if (code != SQLITE_OK)
            Fail(code);
        sqlite3_busy_timeout(connection_, kWaitMilliseconds);
        sqlite3_limit(connection_, SQLITE_LIMIT_LENGTH, kMostValueBytes);
        sqlite3_limit(connection_, SQLITE_LIMIT_SQL_LENGTH, 10000);
        // Against databases that somebody else made.
        sqlite3_db_config(connection_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
        sqlite3_db_config(connection_, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
        Run("PRAGMA cell_size_check = ON");
        Run("PRAGMA mmap_size = 0");
    }

    // Reads from a database in memory; takes over the bytes, which sqlite3_malloc64 gave.
    void Deserialize(unsigned char *bytes, std::size_t size) {
        const int code = sqlite3_deserialize(connection_, "main", bytes, static_cast<sqlite3_int64>(size),
                                             static_cast<sqlite3_int64>(size),
                                             SQLITE_DESERIALIZE_FREEONCLOSE | SQLITE_DESERIALIZE_READONLY);
        if (code != SQLITE_OK)
            Fail(code);
    }

    void Run(std::string_view sql) {
        const int code = sqlite3_exec(connection_, std::string(sql).c_str(), nullptr, nullptr, nullptr);
        if (code != SQLITE_OK)
            Fail(code);
    }

    sqlite3_stmt *Prepared(std::string_view sql) {
        sqlite3_stmt *&statement = statements_[sql];
        if (statement == nullptr) {
            const int code = sqlite3_prepare_v3(connection_, sql.data(), static_cast<int>(sql.size()),
                                                SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
            if (code != SQLITE_OK)
                Fail(code);
        }
        return statement;
    }

    [[noreturn]] void Fail(int code) const {
        const std::string reason = connection_ == nullptr ? sqlite3_errstr(code) : sqlite3_errmsg(connection_);
        switch (code & 0xFF) {
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
        case SQLITE_FORMAT:
        case SQLITE_TOOBIG:
            throw Damaged(fmt::format("{}: {}", name_, reason));
        case SQLITE_NOMEM:
            throw std::bad_alloc();
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            throw base::Error(
                fmt::format("{}: another program has the store open; try again when it has ended", name_));
        case SQLITE_CANTOPEN:
            throw base::Error(fmt::format("{}: cannot be opened; add makes a store", name_));
        default:
            throw base::Error(fmt::format("{}: {}", name_, reason));
        }
    }

    sqlite3 *connection() const { return connection_; }
    const std::string &name() const { return name_; }

private:
    std::string name_;
    sqlite3 *connection_ = nullptr;
    std::map<std::string_view, sqlite3_stmt *> statements_; // by literals
};

// One use of a statement.
class Store::Statement {
public:
    // `sql` is a literal.
    Statement(Database &database, std::string_view sql) : database_(database), statement_(database.Prepared(sql)) {}

    ~Statement() {
        sqlite3_reset(statement_);
        sqlite3_clear_bindings(statement_);
    }

    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;

    Statement &Bind(int place, int64_t number) { return Check(sqlite3_bind_int64(statement_, place, number)); }
    Statement &BindText(int place, std::string_view text) {
        return Check(sqlite3_bind_text64(statement_, place, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8));
    }
    Statement &BindBlob(int place, std::string_view bytes) {
        return Check(sqlite3_bind_blob64(statement_, place, bytes.data(), bytes.size(), SQLITE_STATIC));
    }

    // Whether there is another row.
    bool Step() {
        const int code = sqlite3_step(statement_);
        if (code != SQLITE_ROW && code != SQLITE_DONE)
            database_.Fail(code);
        return code == SQLITE_ROW;
    }

    bool IsNull(int column) { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }
    int64_t Number(int column) { return sqlite3_column_int64(statement_, column); }
    std::string Text(int column) {
        const unsigned char *text = sqlite3_column_text(statement_, column);
        return text == nullptr ? "" : std::string(TextOf(text, sqlite3_column_bytes(statement_, column)));
    }
    std::span<const uint8_t> Blob(int column) {
        const void *bytes = sqlite3_column_blob(statement_, column);
        return {static_cast<const uint8_t *>(bytes),
                bytes == nullptr ? 0 : static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))};
    }

private:
    Statement &Check(int code) {
        if (code != SQLITE_OK)
            database_.Fail(code);
        return *this;
    }

    Database &database_;
    sqlite3_stmt *statement_;
};

namespace {

template <typename Database>
int64_t Pragma(Database &database, std::string_view sql) {
    sqlite3_stmt *statement = database.Prepared(sql);
    const int code = sqlite3_step(statement);
    const int64_t number = code == SQLITE_ROW ? sqlite3_column_int64(statement, 0) : 0;
    sqlite3_reset(statement);
    if (code != SQLITE_ROW && code != SQLITE_DONE)
        database.Fail(code);
    return number;
}

template <typename Database>
void MakeTables(Database &database) {
    database.Run("BEGIN IMMEDIATE");
    for (const std::string_view table : kTables)
        database.Run(table);
    database.Run(fmt::format("PRAGMA application_id = {}", kApplicationId));
    database.Run(fmt::format("PRAGMA user_version = {}", kUserVersion));
    database.Run("COMMIT");
}

// Refuses what is no store, or one that this program does not know.
template <typename Database>
void CheckFormat(Database &database) {
    if (Pragma(database, "PRAGMA application_id") != kApplicationId)
        throw base::Error(fmt::format("{}: is a database, but no store of features", database.name()));
    const int64_t user_version = Pragma(database, "PRAGMA user_version");
    const int64_t version = user_version & ((1 << kExtractorPlace) - 1);
    const int64_t extractor = user_version >> kExtractorPlace;
    if (version != kFormatVersion)
        throw base::Error(fmt::format("{}: is a store of format {}; this program knows format {}; add the files to a "
                                      "new store, or use the program that made this one",
                                      database.name(), version, kFormatVersion));
    if (extractor != kExtractorVersion)
        throw base::Error(
            fmt::format("{}: has features of extractor {}; those of this program are of extractor {}, and "
                        "the two do not mix; add the files to a new store",
                        database.name(), extractor, kExtractorVersion));
    sqlite3_stmt *statement = database.Prepared("SELECT sql FROM sqlite_schema ORDER BY name");
    std::vector<std::string> tables;
    int code = sqlite3_step(statement);
    for (; code == SQLITE_ROW && tables.size() <= std::size(kTables); code = sqlite3_step(statement))
        if (const unsigned char *text = sqlite3_column_text(statement, 0))
            tables.emplace_back(TextOf(text, sqlite3_column_bytes(statement, 0)));
    sqlite3_reset(statement);
    if (code != SQLITE_ROW && code != SQLITE_DONE)
        database.Fail(code);
    if (!std::ranges::equal(tables, kTables))
        throw Damaged(fmt::format("{}: it has other tables than a store", database.name()));
}

} // namespace

Store::Store(const std::filesystem::path &path, Access access)
    : database_(std::make_unique<Database>(base::PrintablePath(path))) {
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored))
        throw base::Error(path, "is a folder; a store is a file");
    const int create = access == Access::Create ? SQLITE_OPEN_CREATE : 0;
    // Readers, too, may have to undo what a killed program left; what is write-protected is opened for reading.
    database_->Open(base::PathText(path).c_str(), SQLITE_OPEN_READWRITE | create);
    if (access != Access::Read)
        database_->Run("PRAGMA locking_mode = EXCLUSIVE");
    if (access == Access::Create && Pragma(*database_, "SELECT count(*) FROM sqlite_schema") == 0) {
        database_->Run(fmt::format("PRAGMA page_size = {}", kPageSize));
        database_->Run("PRAGMA auto_vacuum = INCREMENTAL");
        MakeTables(*database_);
    }
    CheckFormat(*database_);
    if (access == Access::Read) {
        // Nobody changes the store while it is being read.
        database_->Run("BEGIN");
        Pragma(*database_, "SELECT count(*) FROM segment");
    } else {
        database_->Run("BEGIN EXCLUSIVE");
        database_->Run("COMMIT");
    }
}

Store::Store(std::span<const uint8_t> bytes) : database_(std::make_unique<Database>("store")) {
    auto *copy = static_cast<unsigned char *>(sqlite3_malloc64(bytes.size() + 1));
    if (copy == nullptr)
        throw std::bad_alloc();
    if (!bytes.empty())
        std::memcpy(copy, bytes.data(), bytes.size());
    database_->Open(":memory:", SQLITE_OPEN_READWRITE);
    database_->Deserialize(copy, bytes.size());
    CheckFormat(*database_);
}

Store::~Store() = default;

std::vector<SegmentEntry> Store::Segments() {
    Statement statement(*database_, "SELECT id, rows, gone FROM segment ORDER BY id");
    std::vector<SegmentEntry> entries;
    while (statement.Step()) {
        const int64_t id = statement.Number(0);
        const int64_t rows = statement.Number(1);
        if (id < 0 || id > kLargestSegment || rows <= 0 || rows > static_cast<int64_t>(kMostRows))
            throw Damaged(fmt::format("{}: segment {} has {} rows", database_->name(), id, rows));
        entries.push_back(
            {id, static_cast<std::size_t>(rows), UnpackGone(statement.Blob(2), static_cast<std::size_t>(rows))});
    }
    return entries;
}

std::unique_ptr<Segment> Store::Open(const SegmentEntry &entry) {
    return std::make_unique<Segment>(
        entry.rows,
        [this, id = entry.id, bytes = std::vector<uint8_t>()](uint32_t number) mutable -> std::span<const uint8_t> {
            Statement statement(*database_, "SELECT bytes FROM piece WHERE id = ?1");
            statement.Bind(1, id * kMostPieces + number);
            const std::span<const uint8_t> blob = statement.Step() ? statement.Blob(0) : std::span<const uint8_t>();
            bytes.assign(blob.begin(), blob.end());
            return bytes;
        });
}

std::vector<Fault> Store::Faults() {
    Statement statement(*database_, "SELECT path, reason, size, time FROM fault ORDER BY path");
    std::vector<Fault> faults;
    while (statement.Step()) {
        faults.push_back({statement.Text(0), statement.Text(1)});
        if (!statement.IsNull(2))
            faults.back().stamp = {static_cast<uint64_t>(statement.Number(2)), statement.Number(3)};
    }
    return faults;
}

std::vector<PieceSize> Store::PieceSizes() {
    static_assert(kMostPieces == 65536);
    Statement statement(*database_, "SELECT id % 65536, sum(length(bytes)) FROM piece GROUP BY 1 ORDER BY 1");
    std::vector<PieceSize> sizes;
    while (statement.Step())
        sizes.push_back({static_cast<uint32_t>(statement.Number(0)), static_cast<uint64_t>(statement.Number(1))});
    return sizes;
}

uint64_t Store::size() {
    return static_cast<uint64_t>(Pragma(*database_, "PRAGMA page_count") * Pragma(*database_, "PRAGMA page_size"));
}

void Store::CheckDatabase() {
    Statement statement(*database_, "PRAGMA integrity_check(1)");
    if (!statement.Step() || statement.Text(0) != "ok")
        throw Damaged(fmt::format("{}: {}", database_->name(), statement.Text(0)));
}

void Store::Begin() {
    if (sqlite3_get_autocommit(database_->connection()) == 0)
        database_->Run("ROLLBACK");
    database_->Run("BEGIN IMMEDIATE");
}

void Store::Commit() {
    database_->Run("COMMIT");
}

void Store::Shrink() {
    database_->Run("PRAGMA incremental_vacuum");
}

int64_t Store::Append(std::span<const Piece> pieces, std::size_t rows) {
    const int64_t id = Pragma(*database_, "SELECT ifnull(max(id), 0) + 1 FROM segment");
    if (id > kLargestSegment)
        throw Damaged(fmt::format("{}: it has no segment numbers left", database_->name()));
    Statement(*database_, "INSERT INTO segment(id, rows) VALUES (?1, ?2)")
        .Bind(1, id)
        .Bind(2, static_cast<int64_t>(rows))
        .Step();
    for (const Piece &piece : pieces)
        Statement(*database_, "INSERT INTO piece(id, bytes) VALUES (?1, ?2)")
            .Bind(1, id * kMostPieces + piece.number)
            .BindBlob(2, piece.bytes)
            .Step();
    return id;
}

void Store::Remove(int64_t segment) {
    Statement(*database_, "DELETE FROM segment WHERE id = ?1").Bind(1, segment).Step();
    Statement(*database_, "DELETE FROM piece WHERE id BETWEEN ?1 AND ?2")
        .Bind(1, segment * kMostPieces)
        .Bind(2, segment * kMostPieces + kMostPieces - 1)
        .Step();
}

void Store::SetGone(const SegmentEntry &entry) {
    const std::string bits = PackGone(entry.is_gone);
    Statement(*database_, "UPDATE segment SET gone = ?2 WHERE id = ?1").Bind(1, entry.id).BindBlob(2, bits).Step();
}

void Store::AddFault(const Fault &fault) {
    Statement statement(*database_, "INSERT OR REPLACE INTO fault(path, reason, size, time) VALUES (?1, ?2, ?3, ?4)");
    statement.BindText(1, fault.path).BindText(2, fault.reason);
    if (fault.stamp)
        statement.Bind(3, static_cast<int64_t>(fault.stamp->size)).Bind(4, fault.stamp->time);
    statement.Step();
}

void Store::RemoveFault(std::string_view path) {
    Statement(*database_, "DELETE FROM fault WHERE path = ?1").BindText(1, path).Step();
}

} // namespace tavrik::store
