#include "av_fixtures.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/log.h>
}

namespace tavrin::testing::av {

std::string be16(std::uint32_t v) { return {static_cast<char>(v >> 8), static_cast<char>(v)}; }
std::string be32(std::uint32_t v) { return be16(v >> 16) + be16(v & 0xFFFF); }
std::string be64(std::uint64_t v) { return be32(static_cast<std::uint32_t>(v >> 32)) + be32(static_cast<std::uint32_t>(v)); }
std::string le16(std::uint32_t v) { return {static_cast<char>(v), static_cast<char>(v >> 8)}; }
std::string le32(std::uint32_t v) { return le16(v & 0xFFFF) + le16(v >> 16); }
std::string cr(std::string_view rest) { return "\xA9" + std::string(rest); }

std::string box(std::string_view type, std::string_view payload) {
    return be32(static_cast<std::uint32_t>(8 + payload.size())) + std::string(type) + std::string(payload);
}

std::string fullBox(std::string_view type, std::uint8_t version, std::string_view payload) {
    return box(type, std::string(1, static_cast<char>(version)) + std::string(3, '\0') + std::string(payload));
}

std::string userDataText(std::string_view type, std::string_view text) {
    return box(type, be16(static_cast<std::uint32_t>(text.size())) + be16(0x15C7) + std::string(text));
}

std::string dataAtom(std::uint32_t type, std::string_view value) { return box("data", be32(type) + be32(0) + std::string(value)); }

namespace {

std::string handler(std::string_view type) { return fullBox("hdlr", 0, be32(0) + std::string(type) + std::string(13, '\0')); }

}  // namespace

std::string quickTimeMeta(const std::vector<std::pair<std::string, std::string>>& keyValues) {
    std::string keys = be32(static_cast<std::uint32_t>(keyValues.size()));
    std::string items;
    for (std::size_t i = 0; i < keyValues.size(); ++i) {
        keys += be32(static_cast<std::uint32_t>(8 + keyValues[i].first.size())) + "mdta" + keyValues[i].first;
        items += box(be32(static_cast<std::uint32_t>(i + 1)), dataAtom(1, keyValues[i].second));
    }
    return box("meta", handler("mdta") + fullBox("keys", 0, keys) + box("ilst", items));
}

std::string iTunesMeta(const std::vector<std::pair<std::string, std::string>>& items) {
    std::string list;
    for (const auto& [type, value] : items) list += box(type, dataAtom(1, value));
    return fullBox("meta", 0, handler("mdir") + box("ilst", list));
}

std::string headerBox(std::string_view type, std::uint32_t created, std::uint32_t modified) {
    return fullBox(type, 0, be32(created) + be32(modified) + be32(600) + be32(0) + std::string(16, '\0'));
}

std::string quickTimeFile(std::string_view moovPayload, std::string_view brand) {
    return box("ftyp", std::string(brand) + be32(0) + std::string(brand)) + box("moov", moovPayload) +
           box("mdat", std::string(64, '\x55'));
}

std::string syncsafe(std::uint32_t v) {
    return {static_cast<char>((v >> 21) & 0x7F), static_cast<char>((v >> 14) & 0x7F), static_cast<char>((v >> 7) & 0x7F),
            static_cast<char>(v & 0x7F)};
}

std::string id3Frame(int version, std::string_view id, std::string_view body, std::uint16_t flags) {
    const auto size = static_cast<std::uint32_t>(body.size());
    if (version == 2) return std::string(id) + be32(size).substr(1) + std::string(body);
    return std::string(id) + (version == 4 ? syncsafe(size) : be32(size)) + be16(flags) + std::string(body);
}

std::string id3TextFrame(int version, std::string_view id, std::string_view text) {
    return id3Frame(version, id, std::string(1, '\x03') + std::string(text));
}

std::string id3Tag(int version, std::string_view frames, std::uint8_t flags) {
    return std::string("ID3") + static_cast<char>(version) + '\0' + static_cast<char>(flags) +
           syncsafe(static_cast<std::uint32_t>(frames.size())) + std::string(frames);
}

std::string id3v1(std::string_view title, std::string_view artist, std::string_view year, std::uint8_t genre) {
    auto field = [](std::string_view s, std::size_t n) {
        std::string f(s.substr(0, n));
        f.resize(n, '\0');
        return f;
    };
    return "TAG" + field(title, 30) + field(artist, 30) + field("", 30) + field(year, 4) + field("", 30) +
           static_cast<char>(genre);
}

std::string mp3Frame() { return std::string("\xFF\xFB\x90\x64", 4) + std::string(413, '\0'); }

std::string riffChunk(std::string_view id, std::string_view payload) {
    std::string c = std::string(id) + le32(static_cast<std::uint32_t>(payload.size())) + std::string(payload);
    if (payload.size() & 1) c += '\0';
    return c;
}

std::string riffFile(std::string_view form, std::string_view chunks) {
    return "RIFF" + le32(static_cast<std::uint32_t>(4 + chunks.size())) + std::string(form) + std::string(chunks);
}

std::string infoList(const std::vector<std::pair<std::string, std::string>>& fields) {
    std::string list = "INFO";
    for (const auto& [id, text] : fields) list += riffChunk(id, text + '\0');
    return riffChunk("LIST", list);
}

std::string aiffChunk(std::string_view id, std::string_view payload) {
    std::string c = std::string(id) + be32(static_cast<std::uint32_t>(payload.size())) + std::string(payload);
    if (payload.size() & 1) c += '\0';
    return c;
}

std::string aiffFile(std::string_view chunks) {
    const std::string comm = aiffChunk("COMM", be16(1) + be32(0) + be16(16) + std::string("\x40\x0B\xAC\x44", 4) +
                                                   std::string(6, '\0'));
    return "FORM" + be32(static_cast<std::uint32_t>(4 + comm.size() + chunks.size())) + "AIFF" + comm + std::string(chunks);
}

std::string flacBlock(int type, bool last, std::string_view payload) {
    return std::string(1, static_cast<char>((last ? 0x80 : 0) | type)) +
           be32(static_cast<std::uint32_t>(payload.size())).substr(1) + std::string(payload);
}

std::string vorbisComment(std::string_view vendor, const std::vector<std::string>& comments) {
    std::string b = le32(static_cast<std::uint32_t>(vendor.size())) + std::string(vendor) +
                    le32(static_cast<std::uint32_t>(comments.size()));
    for (const auto& c : comments) b += le32(static_cast<std::uint32_t>(c.size())) + c;
    return b;
}

std::string flacPicture(std::string_view mime, std::string_view data) {
    return be32(3) + be32(static_cast<std::uint32_t>(mime.size())) + std::string(mime) + be32(0) + be32(1) + be32(1) +
           be32(24) + be32(0) + be32(static_cast<std::uint32_t>(data.size())) + std::string(data);
}

std::string flacFile(std::string_view blocks) {
    return "fLaC" + flacBlock(0, false, std::string(34, '\0')) + std::string(blocks) + std::string("\xFF\xF8\x00\x00", 4);
}

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
    ~Encoder() { avcodec_free_context(&context); }
};

// Sends what the encoder gives for `frame` (null to flush) to the muxer.
void drain(AVFormatContext* out, AVCodecContext* encoder, AVStream* stream, AVFrame* frame) {
    check(avcodec_send_frame(encoder, frame), "send frame");
    AVPacket* packet = av_packet_alloc();
    while (avcodec_receive_packet(encoder, packet) == 0) {
        av_packet_rescale_ts(packet, encoder->time_base, stream->time_base);
        packet->stream_index = stream->index;
        check(av_interleaved_write_frame(out, packet), "write packet");
    }
    av_packet_free(&packet);
}

}  // namespace

void makeMedia(const std::filesystem::path& path, const MediaRecipe& recipe) {
    av_log_set_level(AV_LOG_QUIET);
    AVFormatContext* out = nullptr;
    check(avformat_alloc_output_context2(&out, nullptr, recipe.muxer.c_str(), path.c_str()), "output");
    Encoder video, aac;
    AVStream* videoStream = nullptr;
    AVStream* audioStream = nullptr;
    const bool globalHeader = out->oformat->flags & AVFMT_GLOBALHEADER;
    if (recipe.video) {
        const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
        video.context = avcodec_alloc_context3(codec);
        video.context->width = 16;
        video.context->height = 16;
        video.context->pix_fmt = AV_PIX_FMT_YUVJ420P;
        video.context->time_base = {1, 25};
        if (globalHeader) video.context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        check(avcodec_open2(video.context, codec, nullptr), "open mjpeg");
        videoStream = avformat_new_stream(out, nullptr);
        videoStream->time_base = video.context->time_base;
        check(avcodec_parameters_from_context(videoStream->codecpar, video.context), "video parameters");
    }
    if (recipe.audio == Audio::aac) {
        const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
        aac.context = avcodec_alloc_context3(codec);
        aac.context->sample_fmt = AV_SAMPLE_FMT_FLTP;
        aac.context->sample_rate = 8000;
        av_channel_layout_default(&aac.context->ch_layout, 1);
        aac.context->time_base = {1, 8000};
        if (globalHeader) aac.context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        check(avcodec_open2(aac.context, codec, nullptr), "open aac");
        audioStream = avformat_new_stream(out, nullptr);
        audioStream->time_base = aac.context->time_base;
        check(avcodec_parameters_from_context(audioStream->codecpar, aac.context), "audio parameters");
    } else if (recipe.audio != Audio::none) {
        audioStream = avformat_new_stream(out, nullptr);
        AVCodecParameters* p = audioStream->codecpar;
        p->codec_type = AVMEDIA_TYPE_AUDIO;
        if (recipe.audio == Audio::mp3) {
            p->codec_id = AV_CODEC_ID_MP3;
            p->sample_rate = 44100;
            av_channel_layout_default(&p->ch_layout, 2);
            p->frame_size = 1152;
            p->bit_rate = 128000;
            audioStream->time_base = {1, 44100};
        } else {
            p->codec_id = recipe.muxer == "aiff" ? AV_CODEC_ID_PCM_S16BE : AV_CODEC_ID_PCM_S16LE;
            p->sample_rate = 8000;
            av_channel_layout_default(&p->ch_layout, 1);
            p->bits_per_coded_sample = 16;
            p->block_align = 2;
            audioStream->time_base = {1, 8000};
        }
    }
    for (const auto& [key, value] : recipe.tags) av_dict_set(&out->metadata, key.c_str(), value.c_str(), 0);
    if (recipe.muxer == "avi" && audioStream) av_dict_set(&audioStream->metadata, "title", "Interview Mic", 0);
    AVDictionary* options = nullptr;
    if (recipe.metadataKeys) av_dict_set(&options, "movflags", "use_metadata_tags", 0);
    check(avio_open(&out->pb, path.c_str(), AVIO_FLAG_WRITE), "open file");
    check(avformat_write_header(out, &options), "header");
    av_dict_free(&options);

    if (video.context) {
        AVFrame* frame = av_frame_alloc();
        frame->format = AV_PIX_FMT_YUVJ420P;
        frame->width = 16;
        frame->height = 16;
        check(av_frame_get_buffer(frame, 0), "frame buffer");
        for (int i = 0; i < 3; ++i) {
            check(av_frame_make_writable(frame), "writable");
            for (int plane = 0; plane < 3; ++plane)
                for (int y = 0; y < (plane ? 8 : 16); ++y)
                    for (int x = 0; x < (plane ? 8 : 16); ++x)
                        frame->data[plane][y * frame->linesize[plane] + x] = static_cast<std::uint8_t>(plane ? 128 : 40 * i + x);
            frame->pts = i;
            drain(out, video.context, videoStream, frame);
        }
        drain(out, video.context, videoStream, nullptr);
        av_frame_free(&frame);
    }
    if (aac.context) {
        AVFrame* frame = av_frame_alloc();
        frame->format = AV_SAMPLE_FMT_FLTP;
        frame->nb_samples = aac.context->frame_size;
        frame->sample_rate = 8000;
        av_channel_layout_copy(&frame->ch_layout, &aac.context->ch_layout);
        check(av_frame_get_buffer(frame, 0), "audio buffer");
        for (int i = 0; i < 4; ++i) {
            check(av_frame_make_writable(frame), "writable");
            std::fill_n(reinterpret_cast<float*>(frame->data[0]), frame->nb_samples, 0.0f);
            frame->pts = static_cast<std::int64_t>(i) * frame->nb_samples;
            drain(out, aac.context, audioStream, frame);
        }
        drain(out, aac.context, audioStream, nullptr);
        av_frame_free(&frame);
    } else if (audioStream) {
        const bool mp3 = recipe.audio == Audio::mp3;
        for (int i = 0; i < 4; ++i) {
            AVPacket* packet = av_packet_alloc();
            const std::string payload = mp3 ? mp3Frame() : std::string(800, '\0');
            check(av_new_packet(packet, static_cast<int>(payload.size())), "packet");
            std::copy(payload.begin(), payload.end(), packet->data);
            packet->pts = packet->dts = i * (mp3 ? 1152 : 400);
            packet->duration = mp3 ? 1152 : 400;
            packet->stream_index = audioStream->index;
            av_packet_rescale_ts(packet, {1, mp3 ? 44100 : 8000}, audioStream->time_base);
            check(av_interleaved_write_frame(out, packet), "write audio");
            av_packet_free(&packet);
        }
    }
    check(av_write_trailer(out), "trailer");
    avio_closep(&out->pb);
    avformat_free_context(out);
}

void appendToMoov(const std::filesystem::path& path, std::string_view atoms) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream buffer;
    buffer << in.rdbuf();
    std::string bytes = buffer.str();
    std::size_t pos = 0;
    while (pos + 8 <= bytes.size()) {
        const auto* p = reinterpret_cast<const unsigned char*>(bytes.data() + pos);
        const std::uint32_t size = static_cast<std::uint32_t>(p[0]) << 24 | p[1] << 16 | p[2] << 8 | p[3];
        if (bytes.compare(pos + 4, 4, "moov") == 0) {
            if (pos + size != bytes.size()) throw std::runtime_error("moov is not the last atom");
            bytes.replace(pos, 4, be32(static_cast<std::uint32_t>(size + atoms.size())));
            bytes += atoms;
            std::ofstream(path, std::ios::binary) << bytes;
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
    auto tags = [](const AVDictionary* d) {
        std::map<std::string, std::string> out;
        const AVDictionaryEntry* e = nullptr;
        while ((e = av_dict_get(d, "", e, AV_DICT_IGNORE_SUFFIX))) out[e->key] = e->value;
        return out;
    };
    media.formatTags = tags(in->metadata);
    for (unsigned i = 0; i < in->nb_streams; ++i) {
        const AVStream* s = in->streams[i];
        media.streams.push_back({avcodec_get_name(s->codecpar->codec_id),
                                 av_get_media_type_string(s->codecpar->codec_type)});
        media.streamTags.push_back(tags(s->metadata));
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
