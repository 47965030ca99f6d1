// A tiny bit writer for hand-made NAL units: fixed-length and Exp-Golomb
// elements, rbsp trailing bits, and emulation prevention on the way out.
#pragma once

#include <cstdint>
#include <vector>

namespace corvane::test {

class BitWriter {
public:
    BitWriter& u(int n, uint64_t v) {
        for (int i = n - 1; i >= 0; --i) bits.push_back(((v >> i) & 1) != 0);
        return *this;
    }
    BitWriter& ue(uint64_t v) {
        int len = 0;
        while ((v + 1) >> (len + 1)) ++len;
        u(len, 0);
        return u(len + 1, v + 1);
    }
    BitWriter& se(int64_t v) { return ue(v > 0 ? 2 * uint64_t(v) - 1 : 2 * uint64_t(-v)); }
    BitWriter& trailing() {
        u(1, 1);
        while (bits.size() % 8) bits.push_back(false);
        return *this;
    }

    size_t BitCount() const { return bits.size(); }

    // The written bits as payload bytes, the last byte padded with zero bits.
    std::vector<uint8_t> Rbsp() const {
        std::vector<uint8_t> out((bits.size() + 7) / 8, 0);
        for (size_t i = 0; i < bits.size(); ++i)
            if (bits[i]) out[i / 8] |= uint8_t(0x80 >> (i % 8));
        return out;
    }

    // 00 00 00 01, the header byte, and the payload with 03 inserted wherever
    // two zero bytes are followed by a byte of 3 or less.
    std::vector<uint8_t> Nal(uint8_t header) const {
        std::vector<uint8_t> out = {0, 0, 0, 1, header};
        int zeros = 0;
        for (uint8_t b : Rbsp()) {
            if (zeros >= 2 && b <= 3) {
                out.push_back(3);
                zeros = 0;
            }
            out.push_back(b);
            zeros = b == 0 ? zeros + 1 : 0;
        }
        return out;
    }

private:
    std::vector<bool> bits;
};

}  // namespace corvane::test
