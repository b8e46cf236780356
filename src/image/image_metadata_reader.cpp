#include "image/image_metadata_reader.h"

#include <cctype>
#include <exception>

#include "model/file_system.h"
#include "model/metadata_categorizer.h"
#include "model/pipeline_error.h"
#include "image/image_file.h"
#include "image/image_source.h"
#include "image/image_structural_keys.h"

namespace tavrin {

using image::Properties;

namespace {

constexpr int maxWalkDepth = 255;

struct TopLevelKey {
    std::string_view key;
    std::string_view displayName;
};

constexpr TopLevelKey topLevelKeys[] = {
    {image::key::pixelWidth, "Image Width"},   {image::key::pixelHeight, "Image Height"},
    {image::key::dpiWidth, "DPI Width"},       {image::key::dpiHeight, "DPI Height"},
    {image::key::colorModel, "Color Model"},   {image::key::depth, "Bit Depth"},
    {image::key::orientation, "Orientation"}, {image::key::profileName, "ICC Profile Name"},
    {image::key::hasAlpha, "Has Alpha Channel"},
};

struct Walk {
    std::vector<MetadataItem>& items;

    void leaf(const std::string& fullKey, const std::string& key, const std::string& prefix, const MetadataValue& value) {
        items.push_back({fullKey, fullKey, ImageMetadataReader::humanReadableName(key, prefix), value,
                         MetadataCategorizer::categorize(key, prefix), MetadataSource::imageIO,
                         !image::isStructuralKey(fullKey, &value)});
    }

    // Entries come sorted by key, since the property tree is an ordered map.
    void dictionary(const Properties& dict, const std::string& prefix, int depth) {
        for (const auto& [key, value] : dict) {
            const std::string fullKey = prefix + "." + key;
            if (depth > maxWalkDepth) {
                leaf(fullKey, key, prefix, value);
                continue;
            }
            if (value.kind() == MetadataValue::Kind::dictionary) {
                dictionary(value.asDictionary(), fullKey, depth + 1);
            } else if (value.kind() == MetadataValue::Kind::array) {
                const std::size_t before = items.size();
                const bool needsWhole = array(value.asArray(), fullKey, depth + 1);
                if (needsWhole || (items.size() == before && !value.asArray().empty())) leaf(fullKey, key, prefix, value);
            } else {
                leaf(fullKey, key, prefix, value);
            }
        }
    }

    bool array(const MetadataValue::Array& elements, const std::string& prefix, int depth) {
        if (depth > maxWalkDepth) return !elements.empty();
        bool flag = false;
        for (std::size_t i = 0; i < elements.size(); ++i) {
            const std::string path = prefix + "[" + std::to_string(i) + "]";
            const MetadataValue& e = elements[i];
            if (e.kind() == MetadataValue::Kind::dictionary) dictionary(e.asDictionary(), path, depth + 1);
            else if (e.kind() == MetadataValue::Kind::array) flag = array(e.asArray(), path, depth + 1) || flag;
            else flag = true;
        }
        return flag;
    }
};

bool isDecimalInteger(std::string_view s) {
    if (!s.empty() && (s.front() == '+' || s.front() == '-')) s.remove_prefix(1);
    if (s.empty()) return false;
    for (char c : s)
        if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    return true;
}

}  // namespace

std::set<FileType> ImageMetadataReader::supportedTypes() const {
    return {FileType::jpeg, FileType::png, FileType::tiff, FileType::heic,
            FileType::webp, FileType::gif, FileType::bmp,  FileType::raw};
}

bool ImageMetadataReader::canRead(const std::filesystem::path& url) const {
    if (!MetadataReader::canRead(url)) return false;
    try {
        std::string ext = url.extension().string();
        const bool raw = fileTypeFromExtension(ext.empty() ? ext : ext.substr(1)) == FileType::raw;
        (void)image::ImageSource::create(image::readImageFile(url), raw);
        return true;
    } catch (...) {
        return false;
    }
}

MetadataTree ImageMetadataReader::readMetadata(const std::filesystem::path& url) const {
    const FileType type = detectFileType(url);
    std::optional<image::ImageSource> source;
    try {
        source = image::ImageSource::create(image::readImageFile(url), type == FileType::raw);
    } catch (const ImageFormatError& e) {
        // What the parser found, named once: "(iCCP: the profile does not inflate)".
        throw ImageMetadataReaderError(ImageMetadataReaderError::Case::cannotCreateImageSource,
                                       e.detail().empty() ? e.what() : e.detail());
    } catch (const std::exception& e) {
        throw ImageMetadataReaderError(ImageMetadataReaderError::Case::cannotCreateImageSource, e.what());
    }
    if (source->count() == 0) return MetadataTree::empty(url, type);
    return buildTree(frameItems(source->propertiesAt(0)), url, type);
}

std::vector<MetadataItem> ImageMetadataReader::frameItems(const Properties& frame) {
    std::vector<MetadataItem> items;
    Walk walk{items};
    for (const auto& row : image::dictionaryDescriptors())
        if (const Properties* dict = image::subDictionary(frame, row.key)) walk.dictionary(*dict, std::string(row.prefix), 0);
    for (const auto& top : topLevelKeys) {
        auto it = frame.find(std::string(top.key));
        if (it == frame.end()) continue;
        items.push_back({"ImageIO." + std::string(top.key), std::string(top.key), std::string(top.displayName), it->second,
                         MetadataCategory::colorTechnical, MetadataSource::imageIO,
                         !image::isStructuralKey(top.key, &it->second)});
    }
    return items;
}

std::optional<std::vector<MetadataItem>> ImageMetadataReader::removableItems(image::ByteSpan imageData) {
    try {
        const auto source = image::ImageSource::create(image::Bytes(imageData.begin(), imageData.end()));
        if (source.count() < 1) return std::nullopt;
        std::vector<MetadataItem> out;
        for (std::size_t i = 0; i < source.count(); ++i)
            for (auto& item : frameItems(source.propertiesAt(i)))
                if (item.isRemovable) out.push_back(std::move(item));
        return out;
    } catch (...) {
        return std::nullopt;
    }
}

std::string ImageMetadataReader::humanReadableName(std::string_view key, std::string_view prefix) {
    if (isDecimalInteger(key)) return std::string(prefix) + " Entry " + std::string(key);
    std::string out;
    for (std::size_t i = 0; i < key.size(); ++i) {
        out.push_back(key[i]);
        if (i + 1 < key.size() && std::islower(static_cast<unsigned char>(key[i])) &&
            std::isupper(static_cast<unsigned char>(key[i + 1])))
            out.push_back(' ');
    }
    if (!out.empty()) out[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(out[0])));
    return out;
}

}  // namespace tavrin
