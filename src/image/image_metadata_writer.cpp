#include "image/image_metadata_writer.h"

#include <chrono>
#include <cmath>

#include <fmt/core.h>

#include "model/cleaning_result_builder.h"
#include "model/file_system.h"
#include "model/metadata_categorizer.h"
#include "model/pipeline_error.h"
#include "image/frame_decoder.h"
#include "image/heif_container.h"
#include "image/jpeg_container.h"
#include "image/image_file.h"
#include "image/image_metadata_reader.h"
#include "image/image_structural_keys.h"

namespace tavrin {

using image::Properties;

namespace {

constexpr int overDepth = 256;

std::string lastComponent(std::string_view key) {
    const auto dot = key.rfind('.');
    return std::string(dot == std::string_view::npos ? key : key.substr(dot + 1));
}

MetadataValue convertToMetadataValue(const MetadataValue& value, int depth) {
    if (value.kind() == MetadataValue::Kind::array) {
        if (depth > 255) return MetadataValue::string("<over-depth array>");
        MetadataValue::Array out;
        for (const auto& e : value.asArray()) out.push_back(convertToMetadataValue(e, depth + 1));
        return MetadataValue::array(std::move(out));
    }
    if (value.kind() == MetadataValue::Kind::dictionary) {
        if (depth > 255) return MetadataValue::string("<over-depth dictionary>");
        MetadataValue::Dictionary out;
        for (const auto& [k, v] : value.asDictionary()) out.emplace(k, convertToMetadataValue(v, depth + 1));
        return MetadataValue::dictionary(std::move(out));
    }
    return value;
}

MetadataItem makeItem(const std::string& fullKey, const MetadataValue& value, MetadataCategory category) {
    return {"imageio." + fullKey, fullKey, lastComponent(fullKey), convertToMetadataValue(value, 0), category,
            MetadataSource::imageIO, !image::isStructuralKey(fullKey, &value)};
}

struct Filtered {
    Properties dict;
    std::vector<MetadataItem> removed, retained;
    void absorb(Filtered& other) {
        removed.insert(removed.end(), other.removed.begin(), other.removed.end());
        retained.insert(retained.end(), other.retained.begin(), other.retained.end());
    }
};

Filtered filterNestedDictionary(const Properties& dict, const std::string& prefix, const CleaningProfile& profile, int depth) {
    Filtered out;
    if (depth >= overDepth) {
        // Excessive nesting is judged as one unit, so that it can hide nothing.
        const auto dot = prefix.rfind('.');
        const std::string leaf = dot == std::string::npos ? prefix : prefix.substr(dot + 1);
        std::string parent;
        if (dot != std::string::npos) {
            const auto before = prefix.rfind('.', dot - 1);
            parent = prefix.substr(before == std::string::npos ? 0 : before + 1, dot - (before == std::string::npos ? 0 : before + 1));
        }
        MetadataItem item{"imageio." + prefix, prefix, leaf, MetadataValue::string("<over-depth residue>"),
                          MetadataCategorizer::categorize(leaf, parent), MetadataSource::imageIO,
                          !image::isStructuralKey(prefix, nullptr)};
        if (profile.shouldRemove(item)) {
            out.removed.push_back(std::move(item));
        } else {
            out.dict = dict;
            out.retained.push_back(std::move(item));
        }
        return out;
    }
    for (const auto& [key, value] : dict) {
        const std::string fullKey = prefix + "." + key;
        if (value.kind() == MetadataValue::Kind::dictionary) {
            Filtered child = filterNestedDictionary(value.asDictionary(), fullKey, profile, depth + 1);
            out.absorb(child);
            if (!child.dict.empty()) out.dict.emplace(key, MetadataValue::dictionary(std::move(child.dict)));
            continue;
        }
        MetadataItem item = makeItem(fullKey, value, MetadataCategorizer::categorize(key, prefix));
        if (profile.shouldRemove(item)) {
            out.removed.push_back(std::move(item));
            continue;
        }
        if (value.kind() == MetadataValue::Kind::array) {
            MetadataValue::Array rebuilt;
            for (const auto& element : value.asArray()) {
                if (element.kind() == MetadataValue::Kind::dictionary) {
                    Filtered child = filterNestedDictionary(element.asDictionary(), fullKey, profile, depth + 1);
                    out.absorb(child);
                    if (!child.dict.empty()) rebuilt.push_back(MetadataValue::dictionary(std::move(child.dict)));
                } else {
                    rebuilt.push_back(element);
                }
            }
            if (rebuilt.empty()) continue;
            out.dict.emplace(key, MetadataValue::array(std::move(rebuilt)));
            out.retained.push_back(std::move(item));
            continue;
        }
        out.dict.emplace(key, value);
        out.retained.push_back(std::move(item));
    }
    return out;
}

bool keptBySpecificKey(const MetadataItem& item, const CleaningProfile& profile) {
    return profile.specificKeysToKeep.count(item.id) || profile.specificKeysToKeep.count(item.key);
}

bool profileNames(const MetadataItem& item, const CleaningProfile& profile) {
    return profile.specificKeysToRemove.count(item.id) || profile.specificKeysToRemove.count(item.key) ||
           profile.categoriesToRemove.count(item.category);
}

// The first-level entries of the listed dictionaries that the profile names and keeps not.
std::vector<MetadataItem> residualItems(const Properties& frame, const CleaningProfile& profile) {
    std::vector<MetadataItem> out;
    for (const auto& row : image::dictionaryDescriptors()) {
        const Properties* dict = image::subDictionary(frame, row.key);
        if (!dict) continue;
        for (const auto& [key, value] : *dict) {
            MetadataItem item =
                makeItem(std::string(row.prefix) + "." + key, value, MetadataCategorizer::categorize(key, row.prefix));
            if (item.isRemovable && !keptBySpecificKey(item, profile) && profileNames(item, profile))
                out.push_back(std::move(item));
        }
    }
    return out;
}

// The colour profile's name as an item; removable only when it is no generic name.
MetadataItem profileNameItem(const MetadataValue& value) {
    return makeItem(std::string(image::key::profileName), value, MetadataCategory::colorTechnical);
}

std::string_view formatName(image::ImageFormat format) {
    switch (format) {
        case image::ImageFormat::jpeg: return "JPEG";
        case image::ImageFormat::png: return "PNG";
        case image::ImageFormat::tiff: return "TIFF";
        case image::ImageFormat::heic: return "HEIF";
        case image::ImageFormat::webp: return "WebP";
        case image::ImageFormat::gif: return "GIF";
        case image::ImageFormat::bmp: return "BMP";
        case image::ImageFormat::raw: return "raw image";
    }
    return "image";
}

std::string_view frameNoun(image::ImageFormat format) {
    switch (format) {
        case image::ImageFormat::tiff: return "page";
        case image::ImageFormat::heic: return "image";
        default: return "frame";
    }
}

// 1234567 as "1,234,567".
std::string grouped(std::uint64_t n) {
    std::string digits = std::to_string(n), out;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0) out.push_back(',');
        out.push_back(digits[i]);
    }
    return out;
}

// "1 page", "10,000 pages".
std::string counted(std::uint64_t n, std::string_view noun) {
    return fmt::format("{} {}{}", grouped(n), noun, n == 1 ? "" : "s");
}

// The formats whose writer leaves out a personal colour profile the cleaning profile removes;
// TIFF and BMP keep theirs, and their results report it as retained.
bool dropsPersonalProfiles(image::ImageFormat format) {
    return format == image::ImageFormat::jpeg || format == image::ImageFormat::png ||
           format == image::ImageFormat::webp || format == image::ImageFormat::gif || format == image::ImageFormat::heic;
}

// The frame's properties filtered, and where the format can leave the colour profile out, a
// profile with a personal name going like any removable item. A generic one is a fact about the
// pixels and stays unreported, as every other top-level property does.
ImageMetadataWriter::FilteredProperties filterFrame(const Properties& frame, image::ImageFormat format,
                                                    const CleaningProfile& profile) {
    auto out = ImageMetadataWriter::buildFilteredProperties(frame, profile);
    if (!dropsPersonalProfiles(format)) return out;
    if (auto it = out.properties.find(std::string(image::key::profileName)); it != out.properties.end()) {
        MetadataItem item = profileNameItem(it->second);
        if (item.isRemovable && profile.shouldRemove(item)) {
            out.properties.erase(it);
            out.removed.push_back(std::move(item));
        }
    }
    return out;
}

std::vector<Properties> filteredFrames(const image::ImageSource& source, const CleaningProfile& profile,
                                       const Properties& firstFiltered) {
    std::vector<Properties> frames = {firstFiltered};
    for (std::size_t i = 1; i < source.count(); ++i)
        frames.push_back(filterFrame(source.propertiesAt(i), source.format(), profile).properties);
    return frames;
}

}  // namespace

std::set<FileType> ImageMetadataWriter::supportedTypes() const {
    return {FileType::jpeg, FileType::png, FileType::tiff, FileType::heic, FileType::webp, FileType::gif, FileType::bmp};
}

const std::array<image::DictionaryDescriptor, 22>& ImageMetadataWriter::dictionaryDescriptors() {
    return image::dictionaryDescriptors();
}

const std::set<std::string>& ImageMetadataWriter::supportedImageExtensions() {
    static const std::set<std::string> extensions = [] {
        std::set<std::string> out;
        for (FileType t : {FileType::jpeg, FileType::png, FileType::tiff, FileType::heic, FileType::webp, FileType::gif,
                           FileType::bmp})
            for (auto ext : fileExtensions(t)) out.emplace(ext);
        return out;
    }();
    return extensions;
}

bool ImageMetadataWriter::isStructuralKey(std::string_view key, const MetadataValue* value) {
    return image::isStructuralKey(key, value);
}

bool ImageMetadataWriter::isGenericICCProfileName(const MetadataValue* value) {
    return image::isGenericICCProfileName(value);
}

ImageMetadataWriter::FilteredProperties ImageMetadataWriter::buildFilteredProperties(const Properties& frame,
                                                                                     const CleaningProfile& profile) {
    FilteredProperties out{frame, {}, {}};
    for (const auto& row : image::dictionaryDescriptors()) {
        auto it = out.properties.find(std::string(row.key));
        if (it == out.properties.end()) continue;
        if (it->second.kind() != MetadataValue::Kind::dictionary) {
            out.properties.erase(it);  // a sub-dictionary key that holds no dictionary carries nothing we can judge
            continue;
        }
        Filtered f = filterNestedDictionary(it->second.asDictionary(), std::string(row.prefix), profile, 0);
        out.removed.insert(out.removed.end(), f.removed.begin(), f.removed.end());
        out.retained.insert(out.retained.end(), f.retained.begin(), f.retained.end());
        if (f.dict.empty()) out.properties.erase(it);
        else it->second = MetadataValue::dictionary(std::move(f.dict));
    }
    return out;
}

std::set<MetadataCategory> ImageMetadataWriter::residualRemovableCategories(const Properties& frame,
                                                                            const CleaningProfile& profile) {
    std::set<MetadataCategory> out;
    for (const auto& item : residualItems(frame, profile)) out.insert(item.category);
    return out;
}

std::string ImageMetadataWriter::decodeBudgetRefusal(const image::ImageSource& source) {
    const std::string_view format = formatName(source.format()), noun = frameNoun(source.format());
    std::uint64_t total = 0;
    for (std::size_t i = 0; i < source.count(); ++i) {
        const Properties& frame = source.propertiesAt(i);
        auto w = frame.find(std::string(image::key::pixelWidth));
        auto h = frame.find(std::string(image::key::pixelHeight));
        if (w == frame.end() || h == frame.end()) continue;  // the decoder counts such a frame as it goes
        const auto width = w->second.doubleValue(), height = h->second.doubleValue();
        if (!width || !height || *width < 1 || *height < 1) continue;
        const auto wide = static_cast<std::uint64_t>(std::min(*width, 4.0e9));
        const auto high = static_cast<std::uint64_t>(std::min(*height, 4.0e9));
        if (wide * high > image::maxDecodedPixels)
            return fmt::format("{} {} {}: {} × {} pixels, more than the {} megapixels one {} may decode to be verified",
                               format, noun, i + 1, grouped(wide), grouped(high), image::maxDecodedPixels / 1'000'000,
                               noun);
        total += wide * high;
    }
    if (total <= image::maxTotalDecodedPixels) return {};
    return fmt::format("{}: {} hold {} megapixels together, more than the {} megapixels one file may decode to be "
                       "verified",
                       format, counted(source.count(), noun), grouped(total / 1'000'000),
                       grouped(image::maxTotalDecodedPixels / 1'000'000));
}

bool ImageMetadataWriter::withinDecodeLimits(const image::ImageSource& source) {
    if (source.count() < 1 || source.count() > Limits::maxFrameCount) return false;
    for (std::size_t i = 0; i < source.count(); ++i) {
        const Properties& frame = source.propertiesAt(i);
        auto w = frame.find(std::string(image::key::pixelWidth));
        auto h = frame.find(std::string(image::key::pixelHeight));
        if (w == frame.end() || h == frame.end()) return false;
        const auto width = w->second.doubleValue(), height = h->second.doubleValue();
        if (!width || !height || *width < 1 || *height < 1 || *width > 4.0e9 || *height > 4.0e9) return false;
        const auto area = static_cast<std::uint64_t>(*width) * static_cast<std::uint64_t>(*height);
        if (area > Limits::maxPixelArea) return false;
    }
    return true;
}

ImageMetadataWriter::VerificationOutcome ImageMetadataWriter::verifyOutput(const image::ImageSource& source,
                                                                           image::ByteSpan output,
                                                                           const CleaningProfile& profile) {
    auto failed = [](std::string reason) { return VerificationOutcome{false, {}, std::move(reason)}; };
    auto detail = [](const std::exception& e) {
        const auto* format = dynamic_cast<const ImageFormatError*>(&e);
        return std::string(format && !format->detail().empty() ? format->detail() : e.what());
    };
    const std::string_view noun = frameNoun(source.format());
    std::optional<image::ImageSource> reopened;
    try {
        reopened = image::ImageSource::create(image::Bytes(output.begin(), output.end()));
    } catch (const std::exception& e) {
        return failed("the cleaned copy does not open: " + detail(e));
    }
    if (reopened->format() != source.format())
        return failed(fmt::format("the cleaned copy is no {} file", formatName(source.format())));
    if (reopened->count() < 1 || reopened->count() != source.count())
        return failed(fmt::format("the cleaned copy has {}, the original {}", counted(reopened->count(), noun),
                                  source.count()));
    std::vector<image::FrameSize> before, after;
    try {
        after = image::decodeAllFrames(reopened->format(), reopened->bytes());
    } catch (const std::exception& e) {
        return failed("the cleaned copy does not decode: " + detail(e));
    }
    // Coded images copied byte for byte decode exactly as the source's do: decoding the source
    // too would repeat the same work. Worth proving for the formats whose decoding dominates a
    // clean.
    const bool sameCodedImage =
        (source.format() == image::ImageFormat::jpeg &&
         image::jpegContainer::sameCodedImage(source.bytes(), reopened->bytes())) ||
        (source.format() == image::ImageFormat::heic &&
         image::heifContainer::sameCodedImages(source.bytes(), reopened->bytes()));
    try {
        before = sameCodedImage ? after : image::decodeAllFrames(source.format(), source.bytes());
    } catch (const std::exception& e) {
        return failed("the original does not decode: " + detail(e));
    }
    if (before.size() != after.size())
        return failed(fmt::format("the cleaned copy decodes to {}, the original to {}", counted(after.size(), noun),
                                  before.size()));
    for (std::size_t i = 0; i < before.size(); ++i)
        if (before[i] != after[i])
            return failed(fmt::format("{} {} decodes at {} × {} pixels, in the original at {} × {}", noun, i + 1,
                                      after[i].width, after[i].height, before[i].width, before[i].height));
    std::set<MetadataCategory> residual;
    std::string reason;
    for (std::size_t i = 0; i < reopened->count(); ++i) {
        const Properties& frame = reopened->propertiesAt(i);
        for (const auto& item : residualItems(frame, profile)) {
            if (reason.empty()) reason = fmt::format("{} {}: {} remains", noun, i + 1, item.key);
            residual.insert(item.category);
        }
        // A personal colour profile the cleaning profile removes must be gone where the writer
        // leaves it out.
        if (const auto it = frame.find(std::string(image::key::profileName));
            it != frame.end() && dropsPersonalProfiles(source.format())) {
            const MetadataItem item = profileNameItem(it->second);
            if (item.isRemovable && !keptBySpecificKey(item, profile) && profileNames(item, profile)) {
                if (reason.empty())
                    reason = fmt::format("{} {}: the colour profile named \"{}\" remains", noun, i + 1,
                                         it->second.kind() == MetadataValue::Kind::string ? it->second.asString() : "");
                residual.insert(item.category);
            }
        }
    }
    return {residual.empty(), {residual.begin(), residual.end()}, residual.empty() ? std::string() : reason};
}

CleaningResult ImageMetadataWriter::cleanMetadata(const std::filesystem::path& from, const std::filesystem::path& to,
                                                  const CleaningProfile& profile) const {
    const auto start = std::chrono::steady_clock::now();
    std::optional<image::ImageSource> source;
    try {
        source = image::ImageSource::create(image::readImageFile(from));
    } catch (const ImageFormatError& e) {
        const auto failure = e.errorCase() == ImageFormatError::Case::unknownFormat
                                 ? ImageWriterError::Case::unknownImageType
                                 : ImageWriterError::Case::cannotCreateSource;
        throw PipelineError::readFailed(
            from, std::make_exception_ptr(ImageWriterError(failure, e.detail().empty() ? e.what() : e.detail())));
    } catch (const std::exception& e) {
        throw PipelineError::readFailed(
            from, std::make_exception_ptr(ImageWriterError(ImageWriterError::Case::cannotCreateSource, e.what())));
    }
    // Verification decodes every frame of both files; a file whose frames would take too long
    // is refused before anything is written or decoded.
    if (const std::string refusal = decodeBudgetRefusal(*source); !refusal.empty())
        throw PipelineError::outputVerificationFailed(from, refusal);
    const Properties frame0 = source->count() > 0 ? source->propertiesAt(0) : Properties{};
    FilteredProperties filtered = filterFrame(frame0, source->format(), profile);

    std::vector<CleaningWarning> warnings;
    const bool isJPEG = source->typeIdentifier() == "public.jpeg" || source->typeIdentifier() == "org.jpeg";
    const bool lossless =
        isJPEG && std::none_of(filtered.retained.begin(), filtered.retained.end(), [](const auto& i) { return i.isRemovable; });
    image::Bytes output;
    auto writeStandard = [&] {
        try {
            output = image::writeImage(*source, filteredFrames(*source, profile, filtered.properties));
        } catch (const std::exception& e) {
            throw ImageWriterError(ImageWriterError::Case::cannotCreateDestination, e.what());
        }
    };
    if (lossless) {
        try {
            output = image::writeLosslessJPEG(*source);
        } catch (const std::exception& e) {
            const ImageWriterError failure(ImageWriterError::Case::losslessCopyFailed, e.what());
            warnings.push_back(
                {"JPEG lossless", "Lossless copy failed, falling back to standard write: " + failure.description()});
            writeStandard();
        }
    } else {
        writeStandard();
    }
    try {
        fs::writeNewFile(to, output.data(), output.size());
    } catch (const std::exception& e) {
        throw ImageWriterError(ImageWriterError::Case::finalizationFailed, e.what());
    }
    const VerificationOutcome outcome = verifyOutput(*source, output, profile);
    if (!outcome.passed) throw PipelineError::outputVerificationFailed(from, outcome.reason);

    CleaningResult result =
        buildCleaningResult(from, to, profile, std::move(filtered.removed), std::move(filtered.retained), true);
    // What the verifier found left in the output, rather than what the filter meant to keep.
    result.remainingMetadataClasses = outcome.residualCategories;
    result.warnings = std::move(warnings);
    result.duration = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return result;
}

std::optional<image::Bytes> ImageMetadataWriter::cleanedImageData(image::ByteSpan data, const CleaningProfile& profile) {
    try {
        const auto source = image::ImageSource::create(image::Bytes(data.begin(), data.end()));
        if (source.count() < 1 || !withinDecodeLimits(source)) return std::nullopt;
        std::vector<Properties> frames;
        for (std::size_t i = 0; i < source.count(); ++i)
            frames.push_back(filterFrame(source.propertiesAt(i), source.format(), profile).properties);
        image::Bytes cleaned = image::writeImage(source, frames);
        if (source.count() == 1) (void)image::decodeAllFrames(source.format(), cleaned);
        if (!imageDataIsClean(cleaned, profile)) return std::nullopt;
        return cleaned;
    } catch (...) {
        return std::nullopt;
    }
}

bool ImageMetadataWriter::imageDataIsClean(image::ByteSpan data, const CleaningProfile& profile) {
    const auto items = ImageMetadataReader::removableItems(data);
    if (!items) return false;
    for (const auto& item : *items) {
        if (!item.isRemovable || keptBySpecificKey(item, profile)) continue;
        if (profileNames(item, profile)) return false;
    }
    return true;
}

bool ImageMetadataWriter::isDecodableImageData(image::ByteSpan data) {
    try {
        const auto source = image::ImageSource::create(image::Bytes(data.begin(), data.end()));
        return !source.typeIdentifier().empty() && source.count() >= 1 && withinDecodeLimits(source);
    } catch (...) {
        return false;
    }
}

}  // namespace tavrin
