#include "pe/builder/builder.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include <fmt/format.h>

#include "tavrik2/payload_locator.h"

namespace tavrik::pe::builder {
namespace {

constexpr uint32_t kPieceAlignment = 16;

// Prints the text after it, up to a '$', and ends with exit code 1.
constexpr uint8_t kDosStubCode[] = {0x0E, 0x1F, 0xBA, 0x0E, 0x00, 0xB4, 0x09, 0xCD, 0x21, 0xB8, 0x01, 0x4C, 0xCD, 0x21};

template <typename... Arguments>
[[noreturn]] void Refuse(fmt::format_string<Arguments...> text, Arguments &&...arguments) {
    throw std::invalid_argument(fmt::format(text, std::forward<Arguments>(arguments)...));
}

class Builder {
public:
    explicit Builder(const PeImage &image) : image_(image), headers_(image.headers) {}

    PeFile Build() {
        Begin();
        for (std::size_t index = 0; index < image_.sections.size(); ++index)
            PlaceSection(index);
        WriteContents();
        PutEntryCode();
        WriteHeaders();
        file_.bytes.insert(file_.bytes.end(), image_.overlay.begin(), image_.overlay.end());
        return std::move(file_);
    }

private:
    struct Part {
        uint32_t section;
        uint32_t offset;
        base::Bytes bytes;
    };

    void Begin() {
        if (headers_.SectionAlignment == 0 || headers_.FileAlignment == 0)
            Refuse("SectionAlignment and FileAlignment must not be 0");
        dos_stub_ = image_.dos_stub;
        if (dos_stub_.empty())
            dos_stub_ = MakeDosStub(kUsualDosStubText);
        lfanew_ = base::AlignUp(kDosHeaderSize + static_cast<uint32_t>(dos_stub_.size()), 8);
        optional_header_size_ = WholeOptionalHeaderSize(image_.is_pe32_plus);
        const auto section_count = static_cast<uint32_t>(image_.sections.size());
        const uint32_t written = lfanew_ + kOptionalHeaderOffset + optional_header_size_ +
                                 static_cast<uint32_t>(sizeof(SectionHeader)) * section_count;
        size_of_headers_ = headers_.SizeOfHeaders.value_or(base::AlignUp(written, headers_.FileAlignment));
        raw_end_ = std::max(written, size_of_headers_);
        if (size_of_headers_ < written && section_count != 0)
            Refuse("SizeOfHeaders is 0x{:X}, but the headers take 0x{:X} bytes", size_of_headers_, written);
        next_address_ = base::AlignUp(raw_end_, headers_.SectionAlignment);
        for (uint32_t index = 0; index < kDirectoryCount; ++index)
            directories_[index] = {0, 0};
    }

    void PlaceSection(std::size_t index) {
        const Section &section = image_.sections[index];
        SectionHeader header = {};
        if (section.name.size() > sizeof header.Name)
            Refuse("section name \"{}\" is longer than 8 characters", section.name);
        std::memcpy(header.Name, section.name.data(), section.name.size());
        header.Characteristics = section.Characteristics;

        header.VirtualAddress = section.VirtualAddress.value_or(next_address_);
        if (header.VirtualAddress < next_address_)
            Refuse("section {} \"{}\" begins at address 0x{:X}, inside what ends at 0x{:X}", index, section.name,
                   uint32_t{header.VirtualAddress}, next_address_);

        const uint32_t contents = LayOutPieces(index, header.VirtualAddress);
        header.SizeOfRawData = section.SizeOfRawData.value_or(base::AlignUp(contents, headers_.FileAlignment));
        if (contents > header.SizeOfRawData)
            Refuse("section {} \"{}\" holds 0x{:X} bytes, more than its SizeOfRawData 0x{:X}", index, section.name,
                   contents, uint32_t{header.SizeOfRawData});
        const uint32_t raw_default = header.SizeOfRawData != 0 ? base::AlignUp(raw_end_, headers_.FileAlignment) : 0;
        header.PointerToRawData = section.PointerToRawData.value_or(raw_default);
        if (header.SizeOfRawData != 0) {
            if (header.PointerToRawData < raw_end_)
                Refuse("section {} \"{}\" begins at file offset 0x{:X}, inside what ends at 0x{:X}", index,
                       section.name, uint32_t{header.PointerToRawData}, raw_end_);
            raw_end_ = base::InFile(uint64_t{header.PointerToRawData} + header.SizeOfRawData);
        }

        header.VirtualSize = section.VirtualSize.value_or(DefaultVirtualSize(index, header));
        const uint32_t span = header.VirtualSize != 0 ? header.VirtualSize : header.SizeOfRawData;
        next_address_ = base::AlignUp(uint64_t{header.VirtualAddress} + span, headers_.SectionAlignment);
        file_.sections.push_back(header);
    }

    // What the raw data takes, or all up to the next section when that says where it begins.
    uint32_t DefaultVirtualSize(std::size_t index, const SectionHeader &header) const {
        const uint32_t raw_size = header.SizeOfRawData != 0 ? header.SizeOfRawData : headers_.SectionAlignment;
        if (index + 1 == image_.sections.size() || !image_.sections[index + 1].VirtualAddress)
            return raw_size;
        // A next section that begins too early is refused when its turn comes.
        const uint32_t next = *image_.sections[index + 1].VirtualAddress;
        return next > header.VirtualAddress ? std::max(next - header.VirtualAddress, raw_size) : raw_size;
    }

    // Lays the pieces out for the section's address; returns the length of the contents.
    uint32_t LayOutPieces(std::size_t index, uint32_t address) {
        uint32_t end = 0;
        for (const Piece &piece : image_.sections[index].pieces) {
            const uint32_t offset = piece.offset.value_or(base::AlignUp(end, kPieceAlignment));
            if (offset < end)
                Refuse("in section {} \"{}\" the piece at 0x{:X} is placed upon one that ends at 0x{:X}", index,
                       image_.sections[index].name, offset, end);
            Part part{static_cast<uint32_t>(index), offset, PieceBytes(piece, address + offset)};
            end = base::InFile(uint64_t{offset} + part.bytes.size());
            parts_.push_back(std::move(part));
        }
        return end;
    }

    base::Bytes PieceBytes(const Piece &piece, uint32_t rva) {
        if (const auto *bytes = std::get_if<base::Bytes>(&piece.content)) {
            if (piece.directory)
                directories_[*piece.directory] = {rva, static_cast<uint32_t>(bytes->size())};
            return *bytes;
        }
        if (const auto *resources = std::get_if<ResourceTable>(&piece.content))
            return Publish(LayOut(*resources, rva), rva, kResourceDirectory);
        if (const auto *imports = std::get_if<ImportTable>(&piece.content))
            return Publish(LayOut(*imports, rva, image_.is_pe32_plus), rva, kImportDirectory);
        return Publish(LayOut(std::get<ExportTable>(piece.content), rva), rva, kExportDirectory);
    }

    base::Bytes Publish(LaidTable laid, uint32_t rva, Directory directory) {
        directories_[directory] = {rva + laid.directory.offset, laid.directory.size};
        if (laid.thunks)
            directories_[kImportAddressDirectory] = {rva + laid.thunks->offset, laid.thunks->size};
        return std::move(laid.bytes);
    }

    void WriteContents() {
        file_.bytes.resize(raw_end_);
        for (const Part &part : parts_) {
            const uint32_t start = file_.sections[part.section].PointerToRawData + part.offset;
            std::copy(part.bytes.begin(), part.bytes.end(), file_.bytes.begin() + start);
        }
    }

    const SectionHeader *FirstCodeSection() const {
        const auto found = std::find_if(file_.sections.begin(), file_.sections.end(), [](const SectionHeader &section) {
            return section.SizeOfRawData != 0 &&
                   (section.Characteristics & (section_flag::kCode | section_flag::kExecute)) != 0;
        });
        return found != file_.sections.end() ? &*found : nullptr;
    }

    uint32_t EntryPoint() const {
        const SectionHeader *code = FirstCodeSection();
        const uint32_t base = image_.entry_code.empty() || code == nullptr ? 0 : code->VirtualAddress;
        return headers_.AddressOfEntryPoint.value_or(base);
    }

    void PutEntryCode() {
        if (image_.entry_code.empty())
            return;
        const uint32_t entry_point = EntryPoint();
        const auto length = static_cast<uint32_t>(image_.entry_code.size());
        for (const SectionHeader &section : file_.sections) {
            if (entry_point < section.VirtualAddress || entry_point - section.VirtualAddress >= section.SizeOfRawData)
                continue;
            const uint32_t offset = entry_point - section.VirtualAddress;
            if (section.SizeOfRawData - offset < length)
                Refuse("the entry code runs past the raw data of its section");
            std::copy(image_.entry_code.begin(), image_.entry_code.end(),
                      file_.bytes.begin() + section.PointerToRawData + offset);
            return;
        }
        Refuse("AddressOfEntryPoint 0x{:X} lies in no section's raw data", entry_point);
    }

    // The raw sizes of the sections that have a characteristic; the virtual ones for what is not in the file.
    uint32_t SumOfSizes(uint32_t characteristic) const {
        uint32_t sum = 0;
        for (const SectionHeader &section : file_.sections) {
            if ((section.Characteristics & characteristic) != 0)
                sum += characteristic == section_flag::kUninitializedData ? section.VirtualSize : section.SizeOfRawData;
        }
        return sum;
    }

    uint32_t BaseOfData() const {
        for (const SectionHeader &section : file_.sections) {
            if ((section.Characteristics & (section_flag::kInitializedData | section_flag::kExecute)) ==
                section_flag::kInitializedData)
                return section.VirtualAddress;
        }
        return 0;
    }

    void WriteHeaders() {
        base::ByteWriter writer;
        writer.Put(image_.dos_header);
        writer.U32(lfanew_);
        writer.Append(dos_stub_);
        writer.FillTo(lfanew_);
        writer.U32(kPeSignature);
        writer.Put(MakeFileHeader());
        WriteOptionalHeader(writer);
        for (uint32_t index = 0; index < kDirectoryCount; ++index) {
            writer.U32(image_.directories[index].VirtualAddress.value_or(directories_[index].VirtualAddress));
            writer.U32(image_.directories[index].Size.value_or(directories_[index].Size));
        }
        for (const SectionHeader &section : file_.sections)
            writer.Put(section);
        const base::Bytes bytes = writer.Take();
        std::copy(bytes.begin(), bytes.end(), file_.bytes.begin());
    }

    FileHeader MakeFileHeader() const {
        const auto count = static_cast<uint16_t>(image_.sections.size());
        FileHeader header = {};
        header.Machine = headers_.Machine.value_or(image_.is_pe32_plus ? kMachineAmd64 : kMachineI386);
        header.NumberOfSections = headers_.NumberOfSections.value_or(count);
        header.TimeDateStamp = headers_.TimeDateStamp;
        header.PointerToSymbolTable = headers_.PointerToSymbolTable;
        header.NumberOfSymbols = headers_.NumberOfSymbols;
        header.SizeOfOptionalHeader = static_cast<uint16_t>(optional_header_size_);
        header.Characteristics = headers_.Characteristics;
        return header;
    }

    void WriteOptionalHeader(base::ByteWriter &writer) const {
        const SectionHeader *code = FirstCodeSection();
        const bool plus = image_.is_pe32_plus;
        const auto put_size = [&](uint64_t size) { plus ? writer.U64(size) : writer.U32(static_cast<uint32_t>(size)); };

        writer.U16(plus ? kMagicPe32Plus : kMagicPe32);
        writer.Put(headers_.MajorLinkerVersion);
        writer.Put(headers_.MinorLinkerVersion);
        writer.U32(headers_.SizeOfCode.value_or(SumOfSizes(section_flag::kCode)));
        writer.U32(headers_.SizeOfInitializedData.value_or(SumOfSizes(section_flag::kInitializedData)));
        writer.U32(headers_.SizeOfUninitializedData.value_or(SumOfSizes(section_flag::kUninitializedData)));
        writer.U32(EntryPoint());
        writer.U32(headers_.BaseOfCode.value_or(code != nullptr ? uint32_t{code->VirtualAddress} : 0));
        if (!plus)
            writer.U32(headers_.BaseOfData.value_or(BaseOfData()));
        put_size(headers_.ImageBase);
        writer.U32(headers_.SectionAlignment);
        writer.U32(headers_.FileAlignment);
        writer.U16(headers_.MajorOperatingSystemVersion);
        writer.U16(headers_.MinorOperatingSystemVersion);
        writer.U16(headers_.MajorImageVersion);
        writer.U16(headers_.MinorImageVersion);
        writer.U16(headers_.MajorSubsystemVersion);
        writer.U16(headers_.MinorSubsystemVersion);
        writer.U32(headers_.Win32VersionValue);
        writer.U32(headers_.SizeOfImage.value_or(next_address_));
        writer.U32(size_of_headers_);
        writer.U32(headers_.CheckSum);
        writer.U16(headers_.Subsystem);
        writer.U16(headers_.DllCharacteristics);
        put_size(headers_.SizeOfStackReserve);
        put_size(headers_.SizeOfStackCommit);
        put_size(headers_.SizeOfHeapReserve);
        put_size(headers_.SizeOfHeapCommit);
        writer.U32(headers_.LoaderFlags);
        writer.U32(headers_.NumberOfRvaAndSizes);
    }

    struct DirectoryEntry {
        uint32_t VirtualAddress;
        uint32_t Size;
    };

    const PeImage &image_;
    const Headers &headers_;
    base::Bytes dos_stub_;
    uint32_t lfanew_ = 0;
    uint32_t optional_header_size_ = 0; // with the data directories
    uint32_t size_of_headers_ = 0;
    uint32_t raw_end_ = 0;      // the file offset after everything placed so far
    uint32_t next_address_ = 0; // the first free section address
    std::array<DirectoryEntry, kDirectoryCount> directories_;
    std::vector<Part> parts_;
    PeFile file_;
};

} // namespace

base::Bytes MakeDosStub(std::string_view text) {
    base::Bytes stub(sizeof kDosStubCode + text.size());
    std::copy(text.begin(), text.end(), std::copy(std::begin(kDosStubCode), std::end(kDosStubCode), stub.begin()));
    return stub;
}

PeFile PeImage::Build() const {
    return Builder(*this).Build();
}

const SectionHeader &PeFile::SectionNamed(const std::string &name) const {
    for (const SectionHeader &section : sections) {
        const char *text = reinterpret_cast<const char *>(section.Name);
        if (std::string_view(text, strnlen(text, sizeof section.Name)) == name)
            return section;
    }
    throw std::out_of_range(fmt::format("the file has no section \"{}\"", name));
}

uint32_t PeFile::OffsetOf(uint32_t rva) const {
    for (const SectionHeader &section : sections) {
        if (rva >= section.VirtualAddress && rva - section.VirtualAddress < section.SizeOfRawData)
            return rva - section.VirtualAddress + section.PointerToRawData;
    }
    throw std::out_of_range(fmt::format("address 0x{:X} lies in no section's raw data", rva));
}

uint32_t PeFile::RawEnd(std::size_t index) const {
    const SectionHeader &section = sections.at(index);
    return section.PointerToRawData + section.SizeOfRawData;
}

void PeFile::GrowTo(uint32_t size) {
    if (bytes.size() < size)
        bytes.resize(size);
}

void PeFile::Plant(uint32_t offset, const base::Bytes &payload) {
    GrowTo(base::InFile(uint64_t{offset} + payload.size()));
    const auto place = bytes.begin() + offset;
    const auto size = static_cast<std::ptrdiff_t>(payload.size());
    if (std::any_of(place, place + size, [](uint8_t byte) { return byte != 0; }))
        Refuse("a payload at file offset 0x{:X} would overwrite what is there already", offset);
    std::copy(payload.begin(), payload.end(), place);
}

} // namespace tavrik::pe::builder
