#include "av_fixtures.h"

#include <functional>
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

struct Encoder {
    AVCodecContext* context = nullptr;
    AVStream* stream = nullptr;
    ~Encoder() { avcodec_free_context(&context); }

    void open(AVFormatContext* out, AVCodecID id, const std::function<void(AVCodecContext*)>& setUp) {
        const AVCodec* codec = avcodec_find_encoder(id);
        context = avcodec_alloc_context3(codec);
        setUp(context);
        if (out->oformat->flags & AVFMT_GLOBALHEADER) context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        check(avcodec_open2(context, codec, nullptr), "open encoder");
        stream = avformat_new_stream(out, nullptr);
        stream->time_base = context->time_base;
        check(avcodec_parameters_from_context(stream->codecpar, context), "parameters");
    }
    // Sends what the encoder gives for `frame` (null to flush) to the muxer.
    void drain(AVFormatContext* out, AVFrame* frame) {
        check(avcodec_send_frame(context, frame), "send frame");
        AVPacket* packet = av_packet_alloc();
        while (avcodec_receive_packet(context, packet) == 0) {
            av_packet_rescale_ts(packet, context->time_base, stream->time_base);
            packet->stream_index = stream->index;
            check(av_interleaved_write_frame(out, packet), "write packet");
        }
        av_packet_free(&packet);
    }
    // Encodes `count` frames that `fill` paints, then flushes. `frame` has its format set.
    void encode(AVFormatContext* out, AVFrame* frame, int count, const std::function<void(AVFrame*, int)>& fill) {
        check(av_frame_get_buffer(frame, 0), "frame buffer");
        for (int i = 0; i < count; ++i) {
            check(av_frame_make_writable(frame), "writable");
            fill(frame, i);
            drain(out, frame);
        }
        drain(out, nullptr);
        av_frame_free(&frame);
    }
};

}  // namespace

void makeMedia(const std::filesystem::path& path, const MediaRecipe& recipe) {
    av_log_set_level(AV_LOG_QUIET);
    AVFormatContext* out = nullptr;
    check(avformat_alloc_output_context2(&out, nullptr, recipe.muxer.c_str(), path.c_str()), "output");
    Encoder video, aac;
    if (recipe.video)
        video.open(out, AV_CODEC_ID_MJPEG, [](AVCodecContext* c) {
            c->width = c->height = 16;
            c->pix_fmt = AV_PIX_FMT_YUVJ420P;
            c->time_base = {1, 25};
        });
    AVStream* audio = nullptr;  // packets written as they are, without an encoder
    const bool mp3 = recipe.audio == Audio::mp3;
    if (recipe.audio == Audio::aac) {
        aac.open(out, AV_CODEC_ID_AAC, [](AVCodecContext* c) {
            c->sample_fmt = AV_SAMPLE_FMT_FLTP;
            c->sample_rate = 8000;
            av_channel_layout_default(&c->ch_layout, 1);
            c->time_base = {1, 8000};
        });
    } else if (recipe.audio != Audio::none) {
        audio = avformat_new_stream(out, nullptr);
        AVCodecParameters* p = audio->codecpar;
        p->codec_type = AVMEDIA_TYPE_AUDIO;
        p->codec_id = mp3 ? AV_CODEC_ID_MP3 : recipe.muxer == "aiff" ? AV_CODEC_ID_PCM_S16BE : AV_CODEC_ID_PCM_S16LE;
        p->sample_rate = mp3 ? 44100 : 8000;
        av_channel_layout_default(&p->ch_layout, mp3 ? 2 : 1);
        p->frame_size = mp3 ? 1152 : 0;
        p->bit_rate = mp3 ? 128000 : 0;
        p->bits_per_coded_sample = mp3 ? 0 : 16;
        p->block_align = mp3 ? 0 : 2;
        audio->time_base = {1, p->sample_rate};
    }
    for (const auto& [key, value] : recipe.tags) av_dict_set(&out->metadata, key.c_str(), value.c_str(), 0);
    if (recipe.muxer == "avi" && audio) av_dict_set(&audio->metadata, "title", "Interview Mic", 0);
    check(avio_open(&out->pb, path.c_str(), AVIO_FLAG_WRITE), "open file");
    check(avformat_write_header(out, nullptr), "header");

    if (video.context) {
        AVFrame* frame = av_frame_alloc();
        frame->format = AV_PIX_FMT_YUVJ420P;
        frame->width = frame->height = 16;
        video.encode(out, frame, 3, [](AVFrame* f, int i) {
            for (int plane = 0; plane < 3; ++plane)
                for (int y = 0; y < (plane ? 8 : 16); ++y)
                    for (int x = 0; x < (plane ? 8 : 16); ++x)
                        f->data[plane][y * f->linesize[plane] + x] = static_cast<std::uint8_t>(plane ? 128 : 40 * i + x);
            f->pts = i;
        });
    }
    if (aac.context) {
        AVFrame* frame = av_frame_alloc();
        frame->format = AV_SAMPLE_FMT_FLTP;
        frame->nb_samples = aac.context->frame_size;
        frame->sample_rate = 8000;
        av_channel_layout_copy(&frame->ch_layout, &aac.context->ch_layout);
        aac.encode(out, frame, 4, [](AVFrame* f, int i) {
            std::fill_n(reinterpret_cast<float*>(f->data[0]), f->nb_samples, 0.0f);
            f->pts = static_cast<std::int64_t>(i) * f->nb_samples;
        });
    }
    for (int i = 0; audio && i < 4; ++i) {
        AVPacket* packet = av_packet_alloc();
        const std::string payload = mp3 ? mp3Frame() : std::string(800, '\0');
        check(av_new_packet(packet, static_cast<int>(payload.size())), "packet");
        std::copy(payload.begin(), payload.end(), packet->data);
        packet->duration = mp3 ? 1152 : 400;
        packet->pts = packet->dts = i * packet->duration;
        packet->stream_index = audio->index;
        av_packet_rescale_ts(packet, {1, mp3 ? 44100 : 8000}, audio->time_base);  // the muxer may have changed it
        check(av_interleaved_write_frame(out, packet), "write audio");
        av_packet_free(&packet);
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
    for (unsigned i = 0; i < in->nb_streams; ++i) {
        const AVStream* s = in->streams[i];
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
