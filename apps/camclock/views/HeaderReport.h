#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace camclock::app {

/// What one stream header says, every field under its standard's name.
struct HeaderReport {
    std::string header;  ///< for programs: "SPS", "video_object_layer" ...
    std::string title;   ///< for people
    std::string source;  ///< where it comes from, as the user wrote it
    bool valid = false;
    std::string note;  ///< why it is not valid, or what is strange about it; may be empty
    nlohmann::ordered_json fields = nlohmann::ordered_json::object();
    nlohmann::ordered_json picture;  ///< width, height, pixel_format; null for headers that tell none
};

/// Both entries of a `sprop-parameter-sets` text.
std::vector<HeaderReport> InspectSprop(const std::string& sprop, const std::string& source);

/// One NAL unit, header byte included and without start code.
HeaderReport InspectSps(std::vector<unsigned char> nal, const std::string& source);
HeaderReport InspectPps(std::vector<unsigned char> nal, const std::string& source);

/// The headers that an MPEG-4 Visual configuration holds. The layer is reported in any case.
std::vector<HeaderReport> InspectMpeg4Config(const std::string& hex, const std::string& source);

/// The headers that an SDP carries; one report for a stream that lacks what it should carry.
std::vector<HeaderReport> InspectSdp(const std::string& text, const std::string& source);

bool AllValid(const std::vector<HeaderReport>& reports);

std::vector<std::string> HeaderLines(const std::vector<HeaderReport>& reports);
std::string HeaderJson(const std::vector<HeaderReport>& reports);

}  // namespace camclock::app
