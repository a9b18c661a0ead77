// Any bytes as a picture parameter set.
#include <camclock/ParameterSetParser.h>

#include "fuzz/FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using camclock::fuzz::Require;
    auto bytes = camclock::fuzz::Exact(data, size);
    const auto length = static_cast<unsigned int>(bytes.size());

    camclock::ParameterSetParser parser;
    parser.SetPPSArray(bytes.data(), length);
    const camclock::PPSset& own = parser.GetPPS();
    // Memory grows with the data, whatever counts they announce.
    for (const auto* list : {&own.run_length_minus1, &own.top_left, &own.bottom_right}) {
        Require(list->size() <= 8 || list->size() <= 8 * size);
    }
    Require(own.top_left.size() == own.bottom_right.size());
    const bool runs = own.num_slice_groups_minus1 > 0 && own.slice_group_map_type == 0;
    Require(!own.valid ||
            own.run_length_minus1.size() == (runs ? std::size_t{own.num_slice_groups_minus1} + 1 : 0));

    camclock::ParameterSetParser copy(parser);
    camclock::PPSset again = own;
    copy.ParsePPS(bytes.data(), length, again);
    Require(again.valid == own.valid && again.chroma_qp_index_offset == own.chroma_qp_index_offset &&
            again.run_length_minus1 == own.run_length_minus1 && again.bottom_right == own.bottom_right);
    return 0;
}
