#include "av/avformat_support.h"

#include <dlfcn.h>
#include <fmt/core.h>
#include <optional>
#include <system_error>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/error.h>
#include <libavutil/log.h>
}

#include "av/av_errors.h"

namespace tavrin::avformatSupport {

namespace {

// The media library is loaded on first use, not at start-up: it brings in over a hundred shared
// libraries (every codec), which would slow every run of the program, while only AVI inspection
// and the writer need it.
#define TAVRIN_LIBAV_FUNCTIONS(X) \
    X(avutil, av_log_set_level) \
    X(avutil, av_strerror) \
    X(avutil, av_dict_free) \
    X(avutil, av_dict_set) \
    X(avutil, av_dict_get) \
    X(avformat, avformat_close_input) \
    X(avformat, avio_closep) \
    X(avformat, avformat_free_context) \
    X(avformat, avformat_open_input) \
    X(avformat, avformat_find_stream_info) \
    X(avformat, avformat_alloc_output_context2) \
    X(avformat, avformat_new_stream) \
    X(avformat, av_find_input_format) \
    X(avformat, avio_open) \
    X(avformat, avformat_write_header) \
    X(avformat, av_read_frame) \
    X(avformat, av_interleaved_write_frame) \
    X(avformat, av_write_trailer) \
    X(avformat, av_codec_get_id) \
    X(avformat, av_codec_get_tag2) \
    X(avcodec, avcodec_parameters_copy) \
    X(avcodec, av_packet_alloc) \
    X(avcodec, av_packet_free) \
    X(avcodec, av_packet_unref) \
    X(avcodec, av_packet_rescale_ts)

struct Library {
#define TAVRIN_DECLARE_FUNCTION(library, name) decltype(&::name) name = nullptr;
    TAVRIN_LIBAV_FUNCTIONS(TAVRIN_DECLARE_FUNCTION)
#undef TAVRIN_DECLARE_FUNCTION
};

std::optional<Library> loadLibrary() {
    const auto open = [](const char* name, int major) {
        return ::dlopen(fmt::format("lib{}.so.{}", name, major).c_str(), RTLD_NOW | RTLD_LOCAL);
    };
    void* avutil = open("avutil", LIBAVUTIL_VERSION_MAJOR);
    void* avcodec = open("avcodec", LIBAVCODEC_VERSION_MAJOR);
    void* avformat = open("avformat", LIBAVFORMAT_VERSION_MAJOR);
    if (!avutil || !avcodec || !avformat) return std::nullopt;
    Library library;
#define TAVRIN_RESOLVE_FUNCTION(from, name)                                               \
    library.name = reinterpret_cast<decltype(library.name)>(::dlsym(from, #name)); \
    if (!library.name) return std::nullopt;
    TAVRIN_LIBAV_FUNCTIONS(TAVRIN_RESOLVE_FUNCTION)
#undef TAVRIN_RESOLVE_FUNCTION
    // The library logs to standard error by default; its messages would interleave with ours.
    library.av_log_set_level(AV_LOG_QUIET);
    return library;
}

// The loaded library, or null when this system cannot load it. Loaded once, then only read.
const Library* loadedLibrary() {
    static const std::optional<Library> library = loadLibrary();
    return library ? &*library : nullptr;
}

// Only for code that runs after an entry point found the library loaded.
const Library& api() { return *loadedLibrary(); }


std::string errorText(int code) {
    char buffer[AV_ERROR_MAX_STRING_SIZE] = {};
    api().av_strerror(code, buffer, sizeof buffer);
    return buffer;
}

struct InputCloser {
    AVFormatContext* context = nullptr;
    ~InputCloser() { api().avformat_close_input(&context); }
};

struct OutputCloser {
    AVFormatContext* context = nullptr;
    ~OutputCloser() {
        if (!context) return;
        if (context->pb && !(context->oformat->flags & AVFMT_NOFILE)) api().avio_closep(&context->pb);
        api().avformat_free_context(context);
    }
};

struct DictionaryFreer {
    AVDictionary* dictionary = nullptr;
    ~DictionaryFreer() { api().av_dict_free(&dictionary); }
};

struct PacketFreer {
    AVPacket* packet = api().av_packet_alloc();
    ~PacketFreer() { api().av_packet_free(&packet); }
};

// Opens a local file only: no other protocol, so a crafted file cannot make the library reach
// for the network or for other files.
int openInput(InputCloser& input, const std::filesystem::path& path, const AVInputFormat* format) {
    DictionaryFreer options;
    api().av_dict_set(&options.dictionary, "protocol_whitelist", "file", 0);
    return api().avformat_open_input(&input.context, path.c_str(), format, &options.dictionary);
}

std::string capitalised(std::string key) {
    if (!key.empty() && key[0] >= 'a' && key[0] <= 'z') key[0] = static_cast<char>(key[0] - 'a' + 'A');
    return key;
}

bool isCopied(const AVStream* stream) {
    const auto type = stream->codecpar->codec_type;
    if (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) return false;
    return type == AVMEDIA_TYPE_AUDIO || type == AVMEDIA_TYPE_VIDEO || type == AVMEDIA_TYPE_SUBTITLE;
}

[[noreturn]] void fail(AVWriterError::Case c, const std::string& what, int code) {
    throw AVWriterError(c, fmt::format("{}: {}", what, errorText(code)));
}

RemuxOutcome copyPackets(const RemuxRequest& request) {
    InputCloser input;
    if (const int rc = openInput(input, request.source, nullptr); rc < 0)
        fail(AVWriterError::Case::cannotCreateExportSession, "cannot open the source", rc);
    if (const int rc = api().avformat_find_stream_info(input.context, nullptr); rc < 0)
        fail(AVWriterError::Case::cannotCreateExportSession, "cannot read the source's streams", rc);

    OutputCloser output;
    if (const int rc = api().avformat_alloc_output_context2(&output.context, nullptr, request.muxer.c_str(),
                                                      request.destination.c_str());
        rc < 0 || !output.context)
        fail(AVWriterError::Case::cannotCreateExportSession, "no muxer " + request.muxer, rc);
    AVFormatContext* out = output.context;
    out->flags |= AVFMT_FLAG_BITEXACT;

    RemuxOutcome outcome;
    std::vector<int> mapping(input.context->nb_streams, -1);
    for (unsigned i = 0; i < input.context->nb_streams; ++i) {
        const AVStream* in = input.context->streams[i];
        if (!isCopied(in)) {
            ++outcome.droppedStreams;
            continue;
        }
        AVStream* stream = api().avformat_new_stream(out, nullptr);
        if (!stream) throw AVWriterError(AVWriterError::Case::exportFailed, "cannot add a stream");
        if (const int rc = api().avcodec_parameters_copy(stream->codecpar, in->codecpar); rc < 0)
            fail(AVWriterError::Case::exportFailed, "cannot copy stream parameters", rc);
        // Keep the source's codec tag where the target container knows it (hvc1 stays hvc1).
        unsigned int tag = 0;
        if (out->oformat->codec_tag &&
            api().av_codec_get_id(out->oformat->codec_tag, stream->codecpar->codec_tag) != stream->codecpar->codec_id &&
            api().av_codec_get_tag2(out->oformat->codec_tag, stream->codecpar->codec_id, &tag))
            stream->codecpar->codec_tag = 0;
        stream->time_base = in->time_base;
        stream->disposition = in->disposition;
        mapping[i] = stream->index;
        ++outcome.copiedStreams;
    }
    if (outcome.copiedStreams == 0)
        throw AVWriterError(AVWriterError::Case::exportFailed, "the source has no audio or video stream");

    for (const auto& [key, value] : request.metadata) api().av_dict_set(&out->metadata, key.c_str(), value.c_str(), 0);
    DictionaryFreer options;
    if (request.writeMetadataKeys) api().av_dict_set(&options.dictionary, "movflags", "use_metadata_tags", 0);
    // The MP3 muxer's Xing frame names the library ("Lavf") even when bit-exact; without it a
    // VBR copy shows a less exact duration, which is the price of writing nothing of our own.
    if (request.muxer == "mp3") api().av_dict_set(&options.dictionary, "write_xing", "0", 0);

    if (!(out->oformat->flags & AVFMT_NOFILE))
        if (const int rc = api().avio_open(&out->pb, request.destination.c_str(), AVIO_FLAG_WRITE); rc < 0)
            fail(AVWriterError::Case::exportFailed, "cannot create the output", rc);
    if (const int rc = api().avformat_write_header(out, &options.dictionary); rc < 0)
        fail(AVWriterError::Case::exportFailed, "cannot write the header", rc);

    PacketFreer packet;
    if (!packet.packet) throw AVWriterError(AVWriterError::Case::exportFailed, "out of memory");
    for (;;) {
        const int rc = api().av_read_frame(input.context, packet.packet);
        if (rc == AVERROR_EOF) break;
        // A read error would leave a shortened copy: fail instead.
        if (rc < 0) fail(AVWriterError::Case::exportFailed, "cannot read the source", rc);
        const int index = packet.packet->stream_index;
        if (index < 0 || static_cast<unsigned>(index) >= mapping.size() || mapping[index] < 0) {
            api().av_packet_unref(packet.packet);
            continue;
        }
        const AVStream* in = input.context->streams[index];
        AVStream* target = out->streams[mapping[index]];
        packet.packet->stream_index = mapping[index];
        api().av_packet_rescale_ts(packet.packet, in->time_base, target->time_base);
        packet.packet->pos = -1;
        if (const int w = api().av_interleaved_write_frame(out, packet.packet); w < 0)
            fail(AVWriterError::Case::exportFailed, "cannot write a packet", w);
    }
    if (const int rc = api().av_write_trailer(out); rc < 0) fail(AVWriterError::Case::exportFailed, "cannot finish the output", rc);
    if (out->pb)
        if (const int rc = api().avio_closep(&out->pb); rc < 0)
            fail(AVWriterError::Case::exportFailed, "cannot close the output", rc);
    return outcome;
}

}  // namespace

void appendStreamTags(const std::filesystem::path& path, AVAssetMetadata& out) {
    if (!loadedLibrary())
        throw AVMetadataReaderError(AVMetadataReaderError::Case::propertyLoadFailed, "stream metadata");
    InputCloser input;
    if (openInput(input, path, api().av_find_input_format("avi")) < 0)
        throw AVMetadataReaderError(AVMetadataReaderError::Case::propertyLoadFailed, "stream metadata");
    for (unsigned i = 0; i < input.context->nb_streams; ++i) {
        const AVDictionaryEntry* e = nullptr;
        while ((e = api().av_dict_get(input.context->streams[i]->metadata, "", e, AV_DICT_IGNORE_SUFFIX)))
            out.add({fmt::format("avfs/stream{}{}", capitalised(e->key), i + 1), "", std::string(e->value)});
    }
}

RemuxOutcome remux(const RemuxRequest& request) {
    if (!loadedLibrary())
        throw AVWriterError(AVWriterError::Case::cannotCreateExportSession, "the media library cannot be loaded");
    try {
        return copyPackets(request);
    } catch (...) {
        std::error_code ignored;
        std::filesystem::remove(request.destination, ignored);
        throw;
    }
}

}  // namespace tavrin::avformatSupport
