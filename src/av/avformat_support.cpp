#include "av/avformat_support.h"

#include <fmt/core.h>
#include <mutex>
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

// The library logs to standard error by default; its messages would interleave with ours.
void quietLibrary() {
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_level(AV_LOG_QUIET); });
}

std::string errorText(int code) {
    char buffer[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, buffer, sizeof buffer);
    return buffer;
}

struct InputCloser {
    AVFormatContext* context = nullptr;
    ~InputCloser() { avformat_close_input(&context); }
};

struct OutputCloser {
    AVFormatContext* context = nullptr;
    ~OutputCloser() {
        if (!context) return;
        if (context->pb && !(context->oformat->flags & AVFMT_NOFILE)) avio_closep(&context->pb);
        avformat_free_context(context);
    }
};

struct DictionaryFreer {
    AVDictionary* dictionary = nullptr;
    ~DictionaryFreer() { av_dict_free(&dictionary); }
};

struct PacketFreer {
    AVPacket* packet = av_packet_alloc();
    ~PacketFreer() { av_packet_free(&packet); }
};

// Opens a local file only: no other protocol, so a crafted file cannot make the library reach
// for the network or for other files.
int openInput(InputCloser& input, const std::filesystem::path& path, const AVInputFormat* format) {
    DictionaryFreer options;
    av_dict_set(&options.dictionary, "protocol_whitelist", "file", 0);
    return avformat_open_input(&input.context, path.c_str(), format, &options.dictionary);
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
    if (const int rc = avformat_find_stream_info(input.context, nullptr); rc < 0)
        fail(AVWriterError::Case::cannotCreateExportSession, "cannot read the source's streams", rc);

    OutputCloser output;
    if (const int rc = avformat_alloc_output_context2(&output.context, nullptr, request.muxer.c_str(),
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
        AVStream* stream = avformat_new_stream(out, nullptr);
        if (!stream) throw AVWriterError(AVWriterError::Case::exportFailed, "cannot add a stream");
        if (const int rc = avcodec_parameters_copy(stream->codecpar, in->codecpar); rc < 0)
            fail(AVWriterError::Case::exportFailed, "cannot copy stream parameters", rc);
        // Keep the source's codec tag where the target container knows it (hvc1 stays hvc1).
        unsigned int tag = 0;
        if (out->oformat->codec_tag &&
            av_codec_get_id(out->oformat->codec_tag, stream->codecpar->codec_tag) != stream->codecpar->codec_id &&
            av_codec_get_tag2(out->oformat->codec_tag, stream->codecpar->codec_id, &tag))
            stream->codecpar->codec_tag = 0;
        stream->time_base = in->time_base;
        stream->disposition = in->disposition;
        mapping[i] = stream->index;
        ++outcome.copiedStreams;
    }
    if (outcome.copiedStreams == 0)
        throw AVWriterError(AVWriterError::Case::exportFailed, "the source has no audio or video stream");

    for (const auto& [key, value] : request.metadata) av_dict_set(&out->metadata, key.c_str(), value.c_str(), 0);
    DictionaryFreer options;
    if (request.writeMetadataKeys) av_dict_set(&options.dictionary, "movflags", "use_metadata_tags", 0);
    // The MP3 muxer's Xing frame names the library ("Lavf") even when bit-exact; without it a
    // VBR copy shows a less exact duration, which is the price of writing nothing of our own.
    if (request.muxer == "mp3") av_dict_set(&options.dictionary, "write_xing", "0", 0);

    if (!(out->oformat->flags & AVFMT_NOFILE))
        if (const int rc = avio_open(&out->pb, request.destination.c_str(), AVIO_FLAG_WRITE); rc < 0)
            fail(AVWriterError::Case::exportFailed, "cannot create the output", rc);
    if (const int rc = avformat_write_header(out, &options.dictionary); rc < 0)
        fail(AVWriterError::Case::exportFailed, "cannot write the header", rc);

    PacketFreer packet;
    if (!packet.packet) throw AVWriterError(AVWriterError::Case::exportFailed, "out of memory");
    for (;;) {
        const int rc = av_read_frame(input.context, packet.packet);
        if (rc == AVERROR_EOF) break;
        // A read error would leave a shortened copy: fail instead.
        if (rc < 0) fail(AVWriterError::Case::exportFailed, "cannot read the source", rc);
        const int index = packet.packet->stream_index;
        if (index < 0 || static_cast<unsigned>(index) >= mapping.size() || mapping[index] < 0) {
            av_packet_unref(packet.packet);
            continue;
        }
        const AVStream* in = input.context->streams[index];
        AVStream* target = out->streams[mapping[index]];
        packet.packet->stream_index = mapping[index];
        av_packet_rescale_ts(packet.packet, in->time_base, target->time_base);
        packet.packet->pos = -1;
        if (const int w = av_interleaved_write_frame(out, packet.packet); w < 0)
            fail(AVWriterError::Case::exportFailed, "cannot write a packet", w);
    }
    if (const int rc = av_write_trailer(out); rc < 0) fail(AVWriterError::Case::exportFailed, "cannot finish the output", rc);
    if (out->pb)
        if (const int rc = avio_closep(&out->pb); rc < 0)
            fail(AVWriterError::Case::exportFailed, "cannot close the output", rc);
    return outcome;
}

}  // namespace

void appendStreamTags(const std::filesystem::path& path, AVAssetMetadata& out) {
    quietLibrary();
    InputCloser input;
    if (openInput(input, path, av_find_input_format("avi")) < 0)
        throw AVMetadataReaderError(AVMetadataReaderError::Case::propertyLoadFailed, "stream metadata");
    for (unsigned i = 0; i < input.context->nb_streams; ++i) {
        const AVDictionaryEntry* e = nullptr;
        while ((e = av_dict_get(input.context->streams[i]->metadata, "", e, AV_DICT_IGNORE_SUFFIX)))
            out.add({fmt::format("avfs/stream{}{}", capitalised(e->key), i + 1), "", std::string(e->value)});
    }
}

RemuxOutcome remux(const RemuxRequest& request) {
    quietLibrary();
    try {
        return copyPackets(request);
    } catch (...) {
        std::error_code ignored;
        std::filesystem::remove(request.destination, ignored);
        throw;
    }
}

}  // namespace tavrin::avformatSupport
