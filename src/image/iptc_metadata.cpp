#include "image/iptc_metadata.h"

#include <map>

#include "image/xmp_metadata.h"

namespace tavrin::image {

namespace {

using Case = ImageFormatError::Case;

struct DatasetInfo {
    std::uint8_t number;
    const char* name;
    bool repeatable;
};

constexpr DatasetInfo applicationRecord[] = {
    {5, "ObjectName", false},          {7, "EditStatus", false},
    {10, "Urgency", false},            {12, "SubjectReference", true},
    {15, "Category", false},           {20, "SupplementalCategories", true},
    {22, "FixtureIdentifier", false},  {25, "Keywords", true},
    {26, "ContentLocationCode", true}, {27, "ContentLocationName", true},
    {30, "ReleaseDate", false},        {35, "ReleaseTime", false},
    {37, "ExpirationDate", false},     {38, "ExpirationTime", false},
    {40, "SpecialInstructions", false}, {42, "ActionAdvised", false},
    {45, "ReferenceService", true},    {47, "ReferenceDate", true},
    {50, "ReferenceNumber", true},     {55, "DateCreated", false},
    {60, "TimeCreated", false},        {62, "DigitalCreationDate", false},
    {63, "DigitalCreationTime", false}, {65, "OriginatingProgram", false},
    {70, "ProgramVersion", false},     {75, "ObjectCycle", false},
    {80, "By-line", true},             {85, "By-lineTitle", true},
    {90, "City", false},               {92, "SubLocation", false},
    {95, "ProvinceState", false},      {100, "CountryPrimaryLocationCode", false},
    {101, "CountryPrimaryLocationName", false}, {103, "OriginalTransmissionReference", false},
    {105, "Headline", false},          {110, "Credit", false},
    {115, "Source", false},            {116, "CopyrightNotice", false},
    {118, "Contact", true},            {120, "Caption-Abstract", false},
    {122, "Writer-Editor", true},      {130, "ImageType", false},
    {131, "ImageOrientation", false},  {135, "LanguageIdentifier", false},
};

struct Dataset {
    std::uint8_t record;
    std::uint8_t number;
    ByteSpan value;
    ByteSpan whole;  // marker, header and value, as found
};

std::vector<Dataset> datasets(ByteSpan iim) {
    std::vector<Dataset> out;
    std::size_t at = 0;
    while (at + 5 <= iim.size()) {
        if (iim[at] != 0x1C) break;  // padding after the last dataset
        const std::uint8_t record = iim[at + 1], number = iim[at + 2];
        std::size_t length = be16(iim, at + 3), header = 5;
        if (length & 0x8000) {
            // An extended dataset: the low bits give the size of the length field.
            const std::size_t lengthBytes = length & 0x7FFF;
            enforce(lengthBytes >= 1 && lengthBytes <= 4, Case::invalidStructure, "an IPTC dataset length is malformed");
            length = 0;
            for (std::size_t i = 0; i < lengthBytes; ++i) length = length << 8 | slice(iim, at + 5 + i, 1)[0];
            header += lengthBytes;
        }
        Dataset d{record, number, slice(iim, at + header, length), iim.subspan(at, header + length)};
        out.push_back(d);
        at += header + length;
    }
    return out;
}

const DatasetInfo* info(std::uint8_t number) {
    for (const auto& d : applicationRecord)
        if (d.number == number) return &d;
    return nullptr;
}

std::string datasetName(const Dataset& d) {
    if (const DatasetInfo* i = info(d.number)) return i->name;
    return std::to_string(d.record) + ":" + std::to_string(d.number);
}

bool isUTF8Declared(const std::vector<Dataset>& all) {
    for (const auto& d : all)
        if (d.record == 1 && d.number == 90 && d.value.size() >= 3 && d.value[0] == 0x1B && d.value[1] == 0x25 &&
            d.value[2] == 0x47)
            return true;
    return false;
}

}  // namespace

IPTCParse parseIPTC(ByteSpan iim) {
    IPTCParse out;
    const auto all = datasets(iim);
    const bool utf8 = isUTF8Declared(all);
    for (const auto& d : all) {
        if (d.record != 2 || d.number == 0) continue;
        const std::string name = datasetName(d);
        MetadataValue value = MetadataValue::string(utf8 ? text(d.value) : latin1ToUTF8(d.value));
        const DatasetInfo* i = info(d.number);
        if (i && i->repeatable) {
            MetadataValue::Array items;
            if (auto it = out.properties.find(name); it != out.properties.end() && it->second.kind() == MetadataValue::Kind::array)
                items = it->second.asArray();
            items.push_back(std::move(value));
            out.properties.insert_or_assign(name, MetadataValue::array(std::move(items)));
        } else {
            out.properties.insert_or_assign(name, std::move(value));
        }
    }
    return out;
}

Bytes filteredIPTC(ByteSpan source, const Properties* filtered) {
    if (!filtered || filtered->empty()) return {};
    Bytes out;
    bool any = false;
    for (const auto& d : datasets(source)) {
        const bool envelope = d.record == 1 && d.number == 90;  // the character set
        const bool version = d.record == 2 && d.number == 0;
        if (envelope || version || (d.record == 2 && filtered->count(datasetName(d)))) {
            append(out, d.whole);
            any = any || (!envelope && !version);
        }
    }
    return any ? out : Bytes{};
}

std::vector<PhotoshopResource> parsePhotoshopResources(ByteSpan r) {
    std::vector<PhotoshopResource> out;
    std::size_t at = 0;
    while (at + 12 <= r.size() && startsWith(r.subspan(at), "8BIM")) {
        PhotoshopResource res;
        res.id = be16(r, at + 4);
        const std::size_t nameLength = slice(r, at + 6, 1)[0];
        const std::size_t namePadded = (nameLength + 2) & ~std::size_t{1};
        res.name = slice(r, at + 6, namePadded);
        const std::size_t sizeAt = at + 6 + namePadded;
        const std::uint32_t size = be32(r, sizeAt);
        res.data = slice(r, sizeAt + 4, size);
        out.push_back(res);
        at = sizeAt + 4 + size + (size & 1);
    }
    return out;
}

namespace {

std::string resourceKey(std::uint16_t id) {
    switch (id) {
        case 1005: return "ResolutionInfo";
        case 1033: return "PreviewImage";
        case 1036: return "ThumbnailImage";
        case 1039: return "ICCProfile";
        case 1058: return "ExifInfo";
        case 1061: return "CaptionDigest";
        default: return std::to_string(id);
    }
}

constexpr std::uint16_t iptcResource = 1028;
constexpr std::uint16_t xmpResource = 1060;

}  // namespace

void addPhotoshopProperties(ByteSpan resources, Properties& frame) {
    Properties entries;
    for (const auto& res : parsePhotoshopResources(resources)) {
        if (res.id == iptcResource) {
            mergeSubDictionary(frame, key::iptc, parseIPTC(res.data).properties);
        } else if (res.id == xmpResource) {
            mergeSubDictionary(frame, key::xmp, parseXMP(res.data).properties);
        } else {
            entries.insert_or_assign(resourceKey(res.id), MetadataValue::data(Bytes(res.data.begin(), res.data.end())));
        }
    }
    mergeSubDictionary(frame, key::photoshop, std::move(entries));
}

Bytes filteredPhotoshop(ByteSpan source, const Properties& filtered) {
    const Properties* kept = subDictionary(filtered, key::photoshop);
    Bytes out;
    auto put = [&](std::uint16_t id, ByteSpan name, ByteSpan data) {
        append(out, "8BIM");
        putBE16(out, id);
        append(out, name);
        putBE32(out, static_cast<std::uint32_t>(data.size()));
        append(out, data);
        if (data.size() & 1) out.push_back(0);
    };
    static const std::uint8_t emptyName[2] = {0, 0};
    for (const auto& res : parsePhotoshopResources(source)) {
        if (res.id == iptcResource) {
            const Bytes iptc = filteredIPTC(res.data, subDictionary(filtered, key::iptc));
            if (!iptc.empty()) put(res.id, emptyName, iptc);
        } else if (res.id == xmpResource) {
            const std::string xmp = filteredXMPPacket(res.data, subDictionary(filtered, key::xmp));
            if (!xmp.empty()) put(res.id, emptyName, ByteSpan(reinterpret_cast<const std::uint8_t*>(xmp.data()), xmp.size()));
        } else if (kept && kept->count(resourceKey(res.id))) {
            put(res.id, emptyName, res.data);
        }
    }
    return out;
}

}  // namespace tavrin::image
