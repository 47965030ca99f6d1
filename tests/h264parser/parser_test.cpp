// The parser on hand-made units: start codes and the two printed messages,
// the buffer, exact error texts, the parameter set store, new-picture
// detection and SEI messages.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "h264parser/h264_oracle.h"
#include "h264parser/parser.h"

namespace corvane {
namespace {

using test::Bytes;
using test::Catch;
using test::Feed;

Bytes Sps(uint32_t id = 0) {
  test::SpsSpec spec;
  spec.profile_idc = 77;  // log2_max_frame_num 9, pic_order_cnt_type 0 with 7 lsb bits
  spec.seq_parameter_set_id = id;
  return test::WriteSps(spec);
}

Bytes Pps(uint32_t id, uint32_t spsId, uint32_t bottomFieldPicOrder = 0) {
  return test::BitWriter().ue(id).ue(spsId).u(1, 0).u(1, bottomFieldPicOrder).trailing().Nal(0x68);
}

// An IDR slice header for Sps(0) and Pps(0), behind the four-byte start code.
Bytes IdrSlice(uint32_t frameNum, uint32_t idrPicId, uint32_t pocLsb) {
  return test::BitWriter()
      .ue(0)
      .ue(7)
      .ue(0)
      .u(9, frameNum)
      .ue(idrPicId)
      .u(7, pocLsb)
      .u(1, 1)
      .trailing()
      .Nal(0x65);
}

Bytes Tail(const Bytes& b, size_t from) { return Bytes(b.begin() + from, b.end()); }

TEST(ParserMessages, ExactTexts) {
  const std::pair<std::function<void(cParser&)>, std::string> cases[] = {
      {[](cParser& p) { p.Context().ActivateSPS(32); }, "cContext::ActivateSPS(): id out of range"},
      {[](cParser& p) { p.Context().ActivateSPS(0); },
       "cContext::ActivateSPS(): requested SPS is undefined"},
      {[](cParser& p) { p.Context().ActivatePPS(256); },
       "cContext::ActivatePPS(): id out of range"},
      {[](cParser& p) { p.Context().ActivatePPS(0); },
       "cContext::ActivatePPS(): requested PPS is undefined"},
      {[](cParser& p) {
         Bytes u = Sps(32);
         p.ParseSPS(u.data() + 4, int32_t(u.size() - 4));
       },
       "cContext::DefineSPS(): id out of range"},
      {[](cParser& p) {
         Bytes u = Pps(256, 0);
         p.ParsePPS(u.data() + 4, int32_t(u.size() - 4));
       },
       "cContext::DefinePPS(): id out of range"},
      {[](cParser& p) {
         Bytes u = Sps();
         p.ParseSPS(u.data() + 4, 6);
       },
       "cBitReader::NextByte(): premature end of data"},
  };
  for (const auto& [action, message] : cases) {
    cParser parser(1000, false);
    parser.Reset();
    EXPECT_EQ(Catch([&] { action(parser); }), "ERROR: H264::" + message);
    // Nothing was defined or activated on the way.
    for (const SpsRecord& s : parser.Context().spsSlots) EXPECT_FALSE(s.defined);
    for (const PpsRecord& s : parser.Context().ppsSlots) EXPECT_FALSE(s.defined);
    EXPECT_EQ(parser.Context().activeSps, nullptr);
  }
}

TEST(ParserProcess, StartCodesAndPrintedMessages) {
  const std::string kShort =
      "ERROR: H264::cParser::Process(): NAL unit data buffer content is too short";
  const std::string kInvalid =
      "ERROR: H264::cParser::Process(): NAL unit data buffer content is invalid";
  const Bytes sps4 = Sps(), sps3 = Tail(sps4, 1);
  Bytes zeroThenSps = {0};
  zeroThenSps.insert(zeroThenSps.end(), sps4.begin(), sps4.end());
  struct Case {
    const char* name;
    Bytes buffer;
    std::string printedOnceSynced;
    bool defines;
  };
  const Case cases[] = {
      {"empty", {}, kShort, false},
      {"three bytes", {0, 0, 1}, kShort, false},
      {"SPS behind 00 00 01", sps3, "", true},
      {"SPS behind 00 00 00 01", sps4, "", true},
      {"start code not at offset 0", zeroThenSps, kInvalid, false},
      {"no start code", Tail(sps4, 4), kInvalid, false},
      {"00 00 02", {0, 0, 2, 0x67, 0x4D}, kInvalid, false},
      {"a start code alone", {0, 0, 0, 1}, "", false},
      {"access unit delimiter", {0, 0, 0, 1, 0x09, 0xF0}, "", false},
  };
  for (const Case& c : cases) {
    for (const bool synced : {false, true}) {
      cParser parser(1000, true);
      parser.Reset();
      // A broken SPS unit still marks the stream as synchronised.
      if (synced) Feed(parser, {0, 0, 1, 0x67});
      EXPECT_EQ(parser.AwaitingSps(), !synced);
      testing::internal::CaptureStdout();
      Feed(parser, c.buffer);
      EXPECT_EQ(testing::internal::GetCapturedStdout(), synced ? c.printedOnceSynced : "")
          << c.name << (synced ? ", synchronised" : ", fresh");
      EXPECT_EQ(parser.Context().spsSlots[0].defined, c.defines) << c.name;
      EXPECT_EQ(parser.Fill(), 0);
      EXPECT_EQ(parser.ReadPosition(), 0);
    }
  }
}

TEST(ParserBuffer, AppendKeepsWithinCapacity) {
  const Bytes bytes = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
  struct Case {
    std::vector<int32_t> sizes;  // appended from the start of `bytes` each time
    int32_t fill;
  };
  const Case cases[] = {
      {{10}, 8},    // cut to capacity
      {{5, 5}, 8},  // the second append only fills the room
      {{-3}, 0},    // nothing to take back
      {{6, -2}, 4}, {{6, -100}, 0}, {{3, -1, 2}, 4}, {{0}, 0},
  };
  for (const Case& c : cases) {
    cParser parser(8, true);
    parser.Reset();
    for (int32_t size : c.sizes) parser.Append(bytes.data(), size);
    EXPECT_EQ(parser.Fill(), c.fill);
  }
}

TEST(ParserSlice, DispatchAndNewPictureDetection) {
  cParser parser(1000, false);
  parser.Reset();
  Feed(parser, IdrSlice(0, 0, 0));  // no PPS yet: quietly unread
  EXPECT_FALSE(parser.Context().currentSlice.defined);
  Feed(parser, Sps());
  Feed(parser, Pps(0, 0));
  Feed(parser, Tail(IdrSlice(3, 1, 5), 1));  // slices behind 00 00 01 are passed over
  EXPECT_FALSE(parser.Context().currentSlice.defined);

  struct Step {
    Bytes unit;
    bool startsPicture;
  };
  const Step steps[] = {
      {IdrSlice(3, 1, 5), true},   // the first slice stored
      {IdrSlice(3, 1, 5), false},  // a second slice of the same picture
      {IdrSlice(4, 1, 5), true},   // frame_num
      {IdrSlice(4, 2, 5), true},   // idr_pic_id
      {IdrSlice(4, 2, 6), true},   // pic_order_cnt_lsb
      {IdrSlice(4, 2, 6), false},
  };
  for (const Step& s : steps) {
    Feed(parser, s.unit);
    const SliceRecord& slice = parser.Context().currentSlice;
    ASSERT_TRUE(slice.defined);
    EXPECT_EQ(slice.startsPicture, s.startsPicture);
  }
  // A PPS naming an undefined SPS is kept; activating it fails on the SPS.
  Feed(parser, Pps(9, 4));
  EXPECT_TRUE(parser.Context().ppsSlots[9].defined);
  EXPECT_EQ(Catch([&] { parser.Context().ActivatePPS(9); }),
            "ERROR: H264::cContext::ActivateSPS(): requested SPS is undefined");
  EXPECT_EQ(parser.Context().activePps, &parser.Context().ppsSlots[9]);
}

// An SEI NAL unit of raw messages: type, size, payload bytes.
Bytes Sei(const std::vector<Bytes>& messages) {
  Bytes u = {0, 0, 0, 1, 0x06};
  for (const Bytes& m : messages) u.insert(u.end(), m.begin(), m.end());
  u.push_back(0x80);  // rbsp trailing bits
  return u;
}

TEST(ParserSei, MessagesCountByTheirSize) {
  test::SpsSpec spec;
  spec.vui = true;
  spec.pic_struct_present_flag = 1;
  spec.nalHrd = {1, 6, 10};
  const Bytes timing = {0x01, 0x03, 0b10101000, 0b00001011,
                        0b01100000};                  // cpb 6, dpb 10, pic_struct 6
  const Bytes bufferingPeriod0 = {0x00, 0x01, 0x80};  // seq_parameter_set_id 0
  const Bytes bufferingPeriod5 = {0x00, 0x01, 0x30};  // seq_parameter_set_id 5, undefined

  cParser parser(1000, false);
  parser.Reset();
  Feed(parser, test::WriteSps(spec));
  SpsRecord& sps = parser.Context().spsSlots[0];
  // No SPS active yet: the timing message stores nothing, and the buffering
  // period behind it is still found by the timing message's size.
  Feed(parser, Sei({timing, bufferingPeriod0}));
  EXPECT_EQ(parser.Context().activeSps, &sps);
  EXPECT_FALSE(sps.PictureTiming.valid);
  Feed(parser, Sei({timing}));
  EXPECT_TRUE(sps.PictureTiming.valid);
  EXPECT_EQ(sps.PictureTiming.pic_struct, 6);
  // An undefined SPS in a buffering period ends the unit.
  sps.PictureTiming = {};
  Feed(parser, Sei({bufferingPeriod5, timing}));
  EXPECT_FALSE(sps.PictureTiming.valid);
  // A header-only parser reads no SEI at all.
  cParser headerOnly(1000, true);
  headerOnly.Reset();
  Feed(headerOnly, test::WriteSps(spec));
  Feed(headerOnly, Sei({bufferingPeriod0, timing}));
  EXPECT_EQ(headerOnly.Context().activeSps, nullptr);
}

// A header-only parser stops at frame_mbs_only_flag; a full one must find the
// rest of the unit or define nothing. The unit is cut by the parser's capacity:
// what Append keeps are the first bytes.
TEST(ParameterSetStore, HeaderOnlyStopsBehindFrameMbsOnlyFlag) {
  test::SpsSpec spec;
  spec.vui = true;
  size_t flagBit = 0;
  const Bytes nal = test::WriteSps(spec, &flagBit);
  const size_t flagCut = 5 + flagBit / 8 + 1;  // start code, header, payload to the flag's byte
  ASSERT_LT(flagCut, nal.size());
  struct Case {
    size_t cut;
    bool headerOnly, defines;
  };
  const Case cases[] = {{flagCut, true, true},
                        {flagCut - 1, true, false},
                        {flagCut, false, false},
                        {flagCut + 1, false, false},
                        {nal.size(), false, true}};
  for (const Case& c : cases) {
    cParser parser(static_cast<int32_t>(c.cut), c.headerOnly);
    parser.Reset();
    Feed(parser, nal);
    EXPECT_EQ(parser.Context().spsSlots[0].defined, c.defines) << c.cut << " bytes";
  }
}

TEST(ParameterSetStore, ActiveSetFollowsRedefinitionAndCopies) {
  cParser parser(1000, false);
  parser.Reset();
  test::SpsSpec spec;
  spec.pic_width_in_mbs_minus1 = 7;
  Feed(parser, test::WriteSps(spec));
  const SpsRecord& active = parser.Context().ActivateSPS(0);
  spec.pic_width_in_mbs_minus1 = 44;
  Feed(parser, test::WriteSps(spec));
  EXPECT_EQ(&active, parser.Context().activeSps);
  EXPECT_EQ(parser.Context().activeSps->pic_width_in_mbs_minus1, 44u);
  // A copy's active set is its own slot; a reset clears the store.
  const cContext copy = parser.Context();
  EXPECT_EQ(copy.activeSps, &copy.spsSlots[0]);
  parser.Reset();
  EXPECT_EQ(parser.Context().activeSps, nullptr);
  EXPECT_FALSE(parser.Context().spsSlots[0].defined);
  EXPECT_TRUE(copy.spsSlots[0].defined);
}

}  // namespace
}  // namespace corvane
