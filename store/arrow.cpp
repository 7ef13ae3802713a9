#include "store/arrow.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/sha256.h"
#include "base/utf8.h"
#include "rules/names.h"
#include "store/store.h"

namespace tavrik::store {

namespace {

// Formats of the interface.
constexpr char kTable[] = "+s";
constexpr char kBool[] = "b";
constexpr char kUnsigned32[] = "I";
constexpr char kUnsigned64[] = "L";
constexpr char kText[] = "u"; // UTF-8, places of 32 bits

constexpr int64_t kMayBeNull = 2; // flag of a schema

void SetBit(std::vector<uint8_t> &bits, std::size_t place) {
    bits[place / 8] = static_cast<uint8_t>(bits[place / 8] | 1U << place % 8);
}

// The values of a column; its array owns them.
class ArrowColumn {
public:
    explicit ArrowColumn(std::size_t rows) : valid_((rows + 7) / 8), rows_(rows) {}

    // Each row's value, nothing without one, of a function.
    template <typename Value, typename Get>
    void SetNumbers(Get get) {
        bytes_.resize(rows_ * sizeof(Value));
        for (std::size_t row = 0; row < rows_; ++row)
            if (const std::optional<uint64_t> number = get(row)) {
                const auto value = static_cast<Value>(*number);
                std::memcpy(&bytes_[row * sizeof(Value)], &value, sizeof(value));
                SetBit(valid_, row);
            } else {
                ++nulls_;
            }
    }

    template <typename Get>
    void SetBools(Get get) {
        bytes_.resize((rows_ + 7) / 8);
        for (std::size_t row = 0; row < rows_; ++row) {
            SetBit(valid_, row);
            if (get(row))
                SetBit(bytes_, row);
        }
    }

    // "" is no value.
    template <typename Get>
    void SetTexts(Get get) {
        ends_.push_back(0);
        for (std::size_t row = 0; row < rows_; ++row) {
            const std::string text = get(row);
            bytes_.insert(bytes_.end(), text.begin(), text.end());
            ends_.push_back(static_cast<int32_t>(bytes_.size()));
            if (text.empty())
                ++nulls_;
            else
                SetBit(valid_, row);
        }
    }

    // The array takes the column over.
    static void Give(std::unique_ptr<ArrowColumn> column, ArrowArray &array) {
        ArrowColumn &kept = *column;
        std::size_t buffers = 0;
        kept.buffers_[buffers++] = kept.valid_.data();
        if (!kept.ends_.empty())
            kept.buffers_[buffers++] = kept.ends_.data();
        kept.buffers_[buffers++] = kept.bytes_.data();
        array = {static_cast<int64_t>(kept.rows_),
                 kept.nulls_,
                 0,
                 static_cast<int64_t>(buffers),
                 0,
                 kept.buffers_.data(),
                 nullptr,
                 nullptr,
                 [](ArrowArray *released) {
                     delete static_cast<ArrowColumn *>(released->private_data);
                     released->release = nullptr;
                 },
                 column.release()};
    }

private:
    std::vector<uint8_t> valid_; // a bit for each row
    std::vector<int32_t> ends_;  // of texts, after a 0
    std::vector<uint8_t> bytes_;
    std::array<const void *, 3> buffers_ = {};
    std::size_t rows_;
    int64_t nulls_ = 0;
};

// What a table's array or schema keeps. Children that somebody has taken out have no release any more.
template <typename Part>
struct Family {
    std::vector<Part> children;
    std::vector<Part *> pointers;
    std::array<const void *, 1> buffers = {}; // a table without nulls

    explicit Family(std::size_t count) : children(count) {
        for (Part &child : children)
            pointers.push_back(&child);
    }

    ~Family() {
        for (Part &child : children)
            if (child.release != nullptr)
                child.release(&child);
    }

    Family(const Family &) = delete;
    Family &operator=(const Family &) = delete;

    static void Release(Part *part) {
        delete static_cast<Family *>(part->private_data);
        part->release = nullptr;
    }
};

void MakeSchema(ArrowSchema &schema, const char *format, std::string_view name, int64_t flags) {
    auto text = std::make_unique<std::string>(name);
    schema = {format,
              text->c_str(),
              nullptr,
              flags,
              0,
              nullptr,
              nullptr,
              [](ArrowSchema *released) {
                  delete static_cast<std::string *>(released->private_data);
                  released->release = nullptr;
              },
              nullptr};
    schema.private_data = text.release();
}

// The columns before those of header values.
enum : std::size_t { kFileColumn, kFileSizeColumn, kDigestColumn, kPeColumn, kFirstHeaderColumn };

class ArrowExport {
public:
    explicit ArrowExport(const std::filesystem::path &path)
        : store_(path, Store::Access::Read), entries_(store_.Segments()) {}

    static void MakeTableSchema(ArrowSchema &schema) {
        auto family = std::make_unique<Family<ArrowSchema>>(kFirstHeaderColumn + rules::HeaderFields().size());
        MakeSchema(family->children[kFileColumn], kText, "file", 0);
        MakeSchema(family->children[kFileSizeColumn], kUnsigned64, "size", 0);
        MakeSchema(family->children[kDigestColumn], kText, "sha256", kMayBeNull);
        MakeSchema(family->children[kPeColumn], kBool, "pe", 0);
        std::size_t column = kFirstHeaderColumn;
        for (const rules::Field &field : rules::HeaderFields())
            MakeSchema(family->children[column++], kUnsigned32, field.name, kMayBeNull);
        Family<ArrowSchema> &kept = *family;
        schema = {kTable,
                  "",
                  nullptr,
                  0,
                  static_cast<int64_t>(kept.children.size()),
                  kept.pointers.data(),
                  nullptr,
                  Family<ArrowSchema>::Release,
                  family.release()};
    }

    // The next segment that has files; at the end an array without release.
    void Next(ArrowArray &array) {
        array = {};
        while (next_ < entries_.size() && entries_[next_].live() == 0)
            ++next_;
        if (next_ < entries_.size())
            MakeTable(entries_[next_++], array);
    }

    template <typename Work>
    static int Guard(ArrowArrayStream *stream, Work work) {
        auto *self = static_cast<ArrowExport *>(stream->private_data);
        try {
            work(*self);
            return 0;
        } catch (const std::bad_alloc &) {
            self->error_[0] = '\0'; // the number says it
            return ENOMEM;
        } catch (const std::exception &error) {
            std::strncpy(self->error_.data(), error.what(), self->error_.size() - 1);
            return EIO;
        }
    }

    const char *error() const { return error_.data(); }

private:
    void MakeTable(const SegmentEntry &entry, ArrowArray &array) {
        const std::unique_ptr<Segment> segment = store_.Open(entry);
        std::vector<Row> rows;
        for (std::size_t row = 0; row < entry.rows; ++row)
            if (row >= entry.is_gone.size() || !entry.is_gone[row])
                rows.push_back(static_cast<Row>(row));
        auto family = std::make_unique<Family<ArrowArray>>(kFirstHeaderColumn + rules::HeaderFields().size());
        const auto add = [&](std::size_t place, auto fill) {
            auto column = std::make_unique<ArrowColumn>(rows.size());
            fill(*column);
            ArrowColumn::Give(std::move(column), family->children[place]);
        };
        add(kFileColumn, [&](ArrowColumn &column) {
            column.SetTexts([&](std::size_t i) { return base::LossyUtf8(segment->Paths()[rows[i]]); });
        });
        add(kFileSizeColumn, [&](ArrowColumn &column) {
            column.SetNumbers<uint64_t>([&](std::size_t i) { return std::optional(segment->StampOf(rows[i]).size); });
        });
        add(kDigestColumn, [&](ArrowColumn &column) {
            column.SetTexts([&](std::size_t i) {
                const base::Sha256::Digest digest = segment->DigestOf(rows[i]);
                return digest == base::Sha256::Digest{} ? "" : base::HexDigits(digest);
            });
        });
        add(kPeColumn,
            [&](ArrowColumn &column) { column.SetBools([&](std::size_t i) { return segment->IsPe(rows[i]); }); });
        std::size_t place = kFirstHeaderColumn;
        for (const rules::Field &field : rules::HeaderFields())
            add(place++, [&](ArrowColumn &column) {
                column.SetNumbers<uint32_t>([&](std::size_t i) { return segment->Value(field.number, rows[i]); });
            });
        Family<ArrowArray> &kept = *family;
        array = {static_cast<int64_t>(rows.size()),
                 0,
                 0,
                 1,
                 static_cast<int64_t>(kept.children.size()),
                 kept.buffers.data(),
                 kept.pointers.data(),
                 nullptr,
                 Family<ArrowArray>::Release,
                 family.release()};
    }

    Store store_;
    std::vector<SegmentEntry> entries_;
    std::size_t next_ = 0; // of entries_
    std::array<char, 1024> error_ = {};
};

} // namespace

void ExportArrow(const std::filesystem::path &store, ArrowArrayStream &stream) {
    auto made = std::make_unique<ArrowExport>(store);
    stream.get_schema = [](ArrowArrayStream *from, ArrowSchema *schema) {
        return ArrowExport::Guard(from, [schema](ArrowExport &) { ArrowExport::MakeTableSchema(*schema); });
    };
    stream.get_next = [](ArrowArrayStream *from, ArrowArray *array) {
        return ArrowExport::Guard(from, [array](ArrowExport &self) { self.Next(*array); });
    };
    stream.get_last_error = [](ArrowArrayStream *from) {
        return static_cast<const ArrowExport *>(from->private_data)->error();
    };
    stream.release = [](ArrowArrayStream *released) {
        delete static_cast<ArrowExport *>(released->private_data);
        released->release = nullptr;
    };
    stream.private_data = made.release();
}

} // namespace tavrik::store
