#pragma once

namespace camclock {

// Start codes of MPEG-4 Visual (ISO/IEC 14496-2, table 6-3).
inline constexpr unsigned int kStartCodePrefix = 0x000001;  // 24 bits
inline constexpr unsigned int kFirstLayerStartCode = 0x00000120;
inline constexpr unsigned int kLastLayerStartCode = 0x0000012F;
inline constexpr unsigned int kSequenceStartCode = 0x000001B0;
inline constexpr unsigned int kUserDataStartCode = 0x000001B2;
inline constexpr unsigned int kGroupOfVopStartCode = 0x000001B3;
inline constexpr unsigned int kObjectStartCode = 0x000001B5;
inline constexpr unsigned int kVopStartCode = 0x000001B6;
inline constexpr unsigned int kStuffingStartCode = 0x000001C3;

}  // namespace camclock
