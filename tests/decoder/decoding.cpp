#include "decoder/decoding.h"

#include <cstring>
#include <sstream>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
}

namespace corvane::test {

namespace {

// FFmpeg reports every damaged packet the tests feed on purpose.
const bool kQuietFfmpeg = (av_log_set_level(AV_LOG_QUIET), true);

}  // namespace

const StreamSpec kBaseline176 = {"baseline_176x144.h264", 176, 144, 8,
                                 "-c:v libx264 -profile:v baseline -bf 0 -pix_fmt yuv420p",
                                 "testsrc2", 27};
const StreamSpec kHigh320 = {"high_slices_320x240.h264", 320, 240, 6,
                             "-c:v libx264 -profile:v high -bf 0 -pix_fmt yuv420p "
                             "-x264-params slices=4",
                             "testsrc2", 27};
const StreamSpec kHevc176 = {"main_176x144.hevc", 176, 144, 6,
                             "-c:v libx265 -x265-params bframes=0:log-level=error",
                             "testsrc2", 173};
const StreamSpec kOdd175x143 = {"high444_175x143.h264", 175, 143, 5,
                                "-c:v libx264 -pix_fmt yuv444p -bf 0", "testsrc", 27};

std::vector<Packet> LoadPackets(const StreamSpec& spec) {
    return SplitAccessUnits(
        MakeStream(spec.file, spec.width, spec.height, spec.frames, spec.args, spec.source),
        spec.codecId);
}

std::vector<Picture> ExpectedPictures(const std::vector<Packet>& packets, int codecId) {
    return ReferenceDecode(packets, codecId, false, [](AVCodecContext* context) {
        context->thread_count = 0;
        context->thread_type = FF_THREAD_SLICE;
        context->flags |= AV_CODEC_FLAG_OUTPUT_CORRUPT;
        context->flags2 |= AV_CODEC_FLAG2_FAST | AV_CODEC_FLAG2_SHOW_ALL;
    });
}

DecompressFn DecompressFor(int codecId) {
    return codecId == 173 ? H265CodecDecompress : H264CodecDecompress;
}

int32_t Feed(CodecHandle session, int codecId, const Packet& packet, BITMAPINFOHEADER* header,
             uint8_t* out, int32_t outSize) {
    return DecompressFor(codecId)(session, packet.data(), static_cast<int32_t>(packet.size()),
                                  header, out, outSize);
}

uint8_t FillByte(int call, size_t i) {
    return static_cast<uint8_t>(i * 31 + static_cast<size_t>(call) * 7 + 1);
}

Delivered DecodeAll(CodecHandle session, int codecId, const std::vector<Packet>& packets,
                    int width, int height) {
    Delivered delivered;
    const size_t rowBytes = static_cast<size_t>(width) * 3;
    std::vector<uint8_t> out(rowBytes * height);
    for (size_t call = 0; call < packets.size(); ++call) {
        for (size_t i = 0; i < out.size(); ++i) out[i] = FillByte(static_cast<int>(call), i);
        BITMAPINFOHEADER header;
        std::memset(&header, 0, sizeof(header));
        delivered.results.push_back(Feed(session, codecId, packets[call], &header, out.data(),
                                         static_cast<int32_t>(out.size())));
        if (header.biSize != sizeof(BITMAPINFOHEADER)) continue;  // no picture this call
        Picture picture;
        picture.width = header.biWidth;
        picture.height = header.biHeight;
        picture.bgr = out;
        for (size_t i = out.size() - rowBytes; i < out.size(); ++i)
            if (out[i] != FillByte(static_cast<int>(call), i)) {
                ++delivered.lastRowOverwritten;
                break;
            }
        delivered.pictures.push_back(std::move(picture));
    }
    return delivered;
}

std::string CompareAllButLastRow(const std::vector<Picture>& got,
                                 const std::vector<Picture>& expected) {
    std::ostringstream diff;
    if (got.size() != expected.size())
        diff << got.size() << " pictures, expected " << expected.size() << "; ";
    for (size_t n = 0; n < got.size() && n < expected.size(); ++n) {
        const Picture& a = got[n];
        const Picture& b = expected[n];
        if (a.width != b.width || a.height != b.height) {
            diff << "picture " << n << " is " << a.width << "x" << a.height << ", expected "
                 << b.width << "x" << b.height;
            break;
        }
        const int row = FirstDifferingRow(a.bgr.data(), b.bgr.data(), a.width, a.height - 1);
        if (row >= 0) {
            diff << "picture " << n << " differs first in row " << row;
            break;
        }
    }
    return diff.str();
}

}  // namespace corvane::test
