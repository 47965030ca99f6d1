#include "h264parser/h264_oracle.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <sstream>
#include <stdexcept>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
}

namespace corvane::test {

namespace {

std::string traceText;  // what the trace filter logged, while TraceUnits runs

void CaptureLog(void*, int, const char* fmt, va_list args) {
    char line[1024];
    std::vsnprintf(line, sizeof line, fmt, args);
    traceText += line;
}

// "<bit position> <name> <bits> = <value>"; headings and other lines give false.
bool ParseElement(const std::string& line, std::string& name, int64_t& value) {
    std::istringstream in(line);
    std::vector<std::string> tokens;
    for (std::string t; in >> t;) tokens.push_back(t);
    if (tokens.size() < 5 || tokens[tokens.size() - 2] != "=") return false;
    if (tokens[0].find_first_not_of("0123456789") != std::string::npos) return false;
    name = tokens[1];
    value = std::stoll(tokens.back());
    return true;
}

}  // namespace

int TracedUnit::type() const {
    return static_cast<int>((*this)["nal_unit_type"]);
}

bool TracedUnit::has(const std::string& name) const {
    for (const auto& e : elements)
        if (e.first == name) return true;
    return false;
}

int64_t TracedUnit::operator[](const std::string& name) const {
    for (auto it = elements.rbegin(); it != elements.rend(); ++it)
        if (it->first == name) return it->second;
    ADD_FAILURE() << "no element " << name << " in the traced unit";
    return -1;
}

std::vector<TracedUnit> TraceUnits(const std::vector<Packet>& packets) {
    const AVBitStreamFilter* filter = av_bsf_get_by_name("trace_headers");
    AVBSFContext* bsf = nullptr;
    if (!filter || av_bsf_alloc(filter, &bsf) < 0) throw std::runtime_error("no trace_headers");
    bsf->par_in->codec_id = AV_CODEC_ID_H264;
    if (av_bsf_init(bsf) < 0) throw std::runtime_error("trace_headers init failed");

    traceText.clear();
    av_log_set_callback(CaptureLog);
    AVPacket* pkt = av_packet_alloc();
    for (const Packet& p : packets) {
        av_new_packet(pkt, static_cast<int>(p.size()));
        std::copy(p.begin(), p.end(), pkt->data);
        if (av_bsf_send_packet(bsf, pkt) < 0) break;
        while (av_bsf_receive_packet(bsf, pkt) == 0) av_packet_unref(pkt);
    }
    av_packet_free(&pkt);
    av_bsf_free(&bsf);
    av_log_set_callback(av_log_default_callback);

    // A unit's trace opens with its header's first element.
    std::vector<TracedUnit> units;
    std::istringstream lines(traceText);
    std::string name;
    int64_t value = 0;
    for (std::string line; std::getline(lines, line);) {
        if (!ParseElement(line, name, value)) continue;
        if (name == "forbidden_zero_bit") units.emplace_back();
        if (!units.empty()) units.back().elements.emplace_back(name, value);
    }
    return units;
}

DecodedGeometry DecodeFirstPicture(const std::string& path) {
    AVFormatContext* format = nullptr;
    if (avformat_open_input(&format, path.c_str(), nullptr, nullptr) < 0)
        throw std::runtime_error("cannot open " + path);
    avformat_find_stream_info(format, nullptr);
    const AVCodec* codec = nullptr;
    const int stream = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    AVCodecContext* ctx = avcodec_alloc_context3(codec);
    avcodec_parameters_to_context(ctx, format->streams[stream]->codecpar);
    ctx->thread_count = 1;
    if (avcodec_open2(ctx, codec, nullptr) < 0) throw std::runtime_error("cannot open decoder");

    DecodedGeometry g;
    AVPacket* pkt = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    bool got = false;
    while (!got && av_read_frame(format, pkt) >= 0) {
        if (pkt->stream_index == stream) avcodec_send_packet(ctx, pkt);
        av_packet_unref(pkt);
        got = avcodec_receive_frame(ctx, frame) == 0;
    }
    if (!got) {
        avcodec_send_packet(ctx, nullptr);
        got = avcodec_receive_frame(ctx, frame) == 0;
    }
    if (got) {
        g = {ctx->coded_width, ctx->coded_height, frame->width, frame->height,
             frame->interlaced_frame != 0};
    }
    av_frame_free(&frame);
    av_packet_free(&pkt);
    avcodec_free_context(&ctx);
    avformat_close_input(&format);
    if (!got) throw std::runtime_error("no picture from " + path);
    return g;
}

std::vector<Packet> SplitNalUnits(const std::vector<uint8_t>& bytes) {
    std::vector<Packet> units;
    size_t start = SIZE_MAX;
    size_t i = 0;
    while (i + 3 <= bytes.size()) {
        if (bytes[i] == 0 && bytes[i + 1] == 0 && bytes[i + 2] == 1) {
            if (start != SIZE_MAX) {
                size_t end = i;
                while (end > start && bytes[end - 1] == 0) --end;  // the long form's extra zero
                units.emplace_back(bytes.begin() + start, bytes.begin() + end);
            }
            i += 3;
            start = i;
        } else {
            ++i;
        }
    }
    if (start != SIZE_MAX) units.emplace_back(bytes.begin() + start, bytes.end());
    return units;
}

Packet WithStartCode(const Packet& unit) {
    Packet p(unit.size() + 4, 0);
    p[3] = 1;
    std::copy(unit.begin(), unit.end(), p.begin() + 4);
    return p;
}

}  // namespace corvane::test
