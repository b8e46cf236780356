#include "av_fixtures.h"

#include <stdexcept>

#include "support/test_support.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/log.h>
}

namespace tavrin::testing::av {

namespace {

void check(int rc, const char* what) {
    if (rc < 0) {
        char text[AV_ERROR_MAX_STRING_SIZE] = {};
        av_strerror(rc, text, sizeof text);
        throw std::runtime_error(std::string(what) + ": " + text);
    }
}

// A stream whose packets are written as they are: neither the muxers nor the writer's passthrough
// copy decode them, so they need no encoder.
AVStream* addStream(AVFormatContext* out, AVMediaType type, AVCodecID codec, int rate) {
    AVStream* stream = avformat_new_stream(out, nullptr);
    stream->codecpar->codec_type = type;
    stream->codecpar->codec_id = codec;
    stream->time_base = {1, rate};
    return stream;
}

void writePacket(AVFormatContext* out, AVStream* stream, const std::string& payload, int index, int duration, int rate) {
    AVPacket* packet = av_packet_alloc();
    check(av_new_packet(packet, static_cast<int>(payload.size())), "packet");
    std::copy(payload.begin(), payload.end(), packet->data);
    packet->duration = duration;
    packet->pts = packet->dts = index * duration;
    packet->stream_index = stream->index;
    packet->flags = AV_PKT_FLAG_KEY;
    av_packet_rescale_ts(packet, {1, rate}, stream->time_base);  // the muxer may have changed it
    check(av_interleaved_write_frame(out, packet), "write packet");
    av_packet_free(&packet);
}

}  // namespace

void makeMedia(const std::filesystem::path& path, const MediaRecipe& recipe) {
    av_log_set_level(AV_LOG_QUIET);
    AVFormatContext* out = nullptr;
    check(avformat_alloc_output_context2(&out, nullptr, recipe.muxer.c_str(), path.c_str()), "output");
    AVStream* video = nullptr;
    if (recipe.video) {
        video = addStream(out, AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_MJPEG, 25);
        video->codecpar->width = video->codecpar->height = 16;
    }
    AVStream* audio = nullptr;
    const bool mp3 = recipe.audio == Audio::mp3, aac = recipe.audio == Audio::aac;
    const int rate = mp3 ? 44100 : 8000, frame = mp3 ? 1152 : aac ? 1024 : 400;
    if (recipe.audio != Audio::none) {
        const AVCodecID codec = mp3   ? AV_CODEC_ID_MP3
                                : aac ? AV_CODEC_ID_AAC
                                      : recipe.muxer == "aiff" ? AV_CODEC_ID_PCM_S16BE : AV_CODEC_ID_PCM_S16LE;
        audio = addStream(out, AVMEDIA_TYPE_AUDIO, codec, rate);
        AVCodecParameters* p = audio->codecpar;
        p->sample_rate = rate;
        av_channel_layout_default(&p->ch_layout, mp3 ? 2 : 1);
        p->frame_size = mp3 || aac ? frame : 0;
        p->bit_rate = mp3 ? 128000 : 0;
        p->bits_per_coded_sample = mp3 || aac ? 0 : 16;
        p->block_align = mp3 || aac ? 0 : 2;
        if (aac) {  // AudioSpecificConfig: AAC LC, 8 kHz, mono
            p->extradata = static_cast<std::uint8_t*>(av_mallocz(2 + AV_INPUT_BUFFER_PADDING_SIZE));
            p->extradata[0] = 0x15;
            p->extradata[1] = 0x88;
            p->extradata_size = 2;
        }
    }
    for (const auto& [key, value] : recipe.tags) av_dict_set(&out->metadata, key.c_str(), value.c_str(), 0);
    if (recipe.muxer == "avi" && audio) av_dict_set(&audio->metadata, "title", "Interview Mic", 0);
    check(avio_open(&out->pb, path.c_str(), AVIO_FLAG_WRITE), "open file");
    check(avformat_write_header(out, nullptr), "header");
    for (int i = 0; i < 4; ++i) {
        if (video && i < 3) writePacket(out, video, std::string(64, char(40 * i)), i, 1, 25);
        if (audio) writePacket(out, audio, mp3 ? mp3Frame() : std::string(aac ? 16 : 800, '\0'), i, frame, rate);
    }
    check(av_write_trailer(out), "trailer");
    avio_closep(&out->pb);
    avformat_free_context(out);
}

void appendToMoov(const std::filesystem::path& path, std::string_view atoms) {
    std::string bytes = readFile(path);
    std::size_t pos = 0;
    while (pos + 8 <= bytes.size()) {
        const auto* p = reinterpret_cast<const unsigned char*>(bytes.data() + pos);
        const std::uint32_t size = static_cast<std::uint32_t>(p[0]) << 24 | p[1] << 16 | p[2] << 8 | p[3];
        if (bytes.compare(pos + 4, 4, "moov") == 0) {
            if (pos + size != bytes.size()) throw std::runtime_error("moov is not the last atom");
            bytes.replace(pos, 4, be32(static_cast<std::uint32_t>(size + atoms.size())));
            bytes += atoms;
            writeFile(path, bytes);
            return;
        }
        if (size < 8) break;
        pos += size;
    }
    throw std::runtime_error("no moov atom");
}

ProbedMedia probe(const std::filesystem::path& path) {
    av_log_set_level(AV_LOG_QUIET);
    ProbedMedia media;
    AVFormatContext* in = nullptr;
    check(avformat_open_input(&in, path.c_str(), nullptr, nullptr), "open");
    check(avformat_find_stream_info(in, nullptr), "stream info");
    auto collectTags = [&](const AVDictionary* dictionary) {
        const AVDictionaryEntry* e = nullptr;
        while ((e = av_dict_get(dictionary, "", e, AV_DICT_IGNORE_SUFFIX)))
            media.tags.push_back(std::string(e->key) + "=" + e->value);
    };
    collectTags(in->metadata);
    for (unsigned i = 0; i < in->nb_streams; ++i) {
        const AVStream* s = in->streams[i];
        collectTags(s->metadata);
        media.streams.push_back({avcodec_get_name(s->codecpar->codec_id),
                                 av_get_media_type_string(s->codecpar->codec_type)});
    }
    AVPacket* packet = av_packet_alloc();
    while (av_read_frame(in, packet) >= 0) {
        ++media.packets;
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    avformat_close_input(&in);
    return media;
}

}  // namespace tavrin::testing::av
