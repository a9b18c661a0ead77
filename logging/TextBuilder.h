#pragma once

#include "logging/TimeText.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

namespace camclock {

/// Puts a text together without stream state and, up to half a kilobyte, without touching the heap.
class TextBuilder {
public:
    TextBuilder() = default;
    TextBuilder(const TextBuilder&) = delete;
    TextBuilder& operator=(const TextBuilder&) = delete;

    void Append(std::string_view part) {
        std::memcpy(_Room(part.size()), part.data(), part.size());
        end_ += part.size();
    }
    void Append(const char* part) { Append(std::string_view(part)); }
    void Append(const std::string& part) { Append(std::string_view(part)); }
    void Append(char part) { *_Room(1) = part, ++end_; }
    void Append(bool part) { Append(part ? std::string_view("true") : std::string_view("false")); }

    /// In the form of every logged time: 2031-04-05 14:07:09.042, UTC.
    void Append(TimePoint time) { end_ = WriteLogTime(_Room(kLongestLogTime), time); }

    /// A floating-point number as a stream writes it by default: six significant digits.
    void Append(double value) {
        char* const room = _Room(kLongestNumber);
        end_ = std::to_chars(room, room + kLongestNumber, value, std::chars_format::general, 6).ptr;
    }

    template <class Integer, std::enable_if_t<std::is_integral_v<Integer>, int> = 0>
    void Append(Integer value) {
        char* const room = _Room(kLongestNumber);
        end_ = std::to_chars(room, room + kLongestNumber, value).ptr;
    }

    void Clear() { end_ = begin_; }

    std::string ToString() const { return {begin_, _Size()}; }
    void WriteTo(std::ostream& out) const { out.write(begin_, static_cast<std::streamsize>(_Size())); }

private:
    static constexpr std::size_t kLongestNumber = 32;

    std::size_t _Size() const { return static_cast<std::size_t>(end_ - begin_); }

    /// Where the next `size` characters go.
    char* _Room(std::size_t size) {
        if (static_cast<std::size_t>(limit_ - end_) < size)
            _Grow(size);
        return end_;
    }

    void _Grow(std::size_t size) {
        const std::size_t used = _Size();
        const std::size_t capacity = 2 * (used + size);
        std::unique_ptr<char[]> larger(new char[capacity]);
        std::memcpy(larger.get(), begin_, used);
        heap_ = std::move(larger);
        begin_ = heap_.get();
        end_ = begin_ + used;
        limit_ = begin_ + capacity;
    }

    std::array<char, 512> inline_;
    std::unique_ptr<char[]> heap_;
    char* begin_ = inline_.data();
    char* end_ = begin_;
    char* limit_ = begin_ + inline_.size();
};

}  // namespace camclock
