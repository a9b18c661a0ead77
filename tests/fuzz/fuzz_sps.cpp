// Any bytes as a sequence parameter set.
#include <camclock/ParameterSetParser.h>

#include "fuzz/FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using camclock::fuzz::Require;
    auto bytes = camclock::fuzz::Exact(data, size);
    const auto length = static_cast<unsigned int>(bytes.size());

    camclock::ParameterSetParser parser;
    parser.SetSPSArray(bytes.data(), length);
    unsigned int width = 1;
    unsigned int height = 3;
    parser.GetImageSize(width, height);
    const camclock::SPSset& own = parser.GetSPS();
    // A size in pixels is even, so the odd ones tell whether it was touched.
    Require((width % 2 == 0) == own.valid && (height % 2 == 0) == own.valid);
    Require(own.valid || parser.GetPixelFormat() == camclock::MediaPacket::kPixelUnknown);
    // Memory grows with the data, whatever counts they announce.
    Require(own.offset_for_ref_frame.size() <= 255 || own.offset_for_ref_frame.size() <= 8 * size);
    Require(own.num_ref_frames_in_pic_order_cnt_cycle > 255 ||
            own.offset_for_ref_frame.size() == own.num_ref_frames_in_pic_order_cnt_cycle);
    Require(!own.valid || own.offset_for_ref_frame.size() == own.num_ref_frames_in_pic_order_cnt_cycle);

    // A second parse, by a copy and into a record in use, gives the same.
    camclock::ParameterSetParser copy(parser);
    camclock::SPSset again = own;
    copy.ParseSPS(bytes.data(), length, again);
    Require(again.valid == own.valid &&
            again.vui_parameters_present_flag == own.vui_parameters_present_flag &&
            again.offset_for_ref_frame == own.offset_for_ref_frame);

    copy.SetPPSArray(bytes.data(), length);
    parser = copy;
    return 0;
}
