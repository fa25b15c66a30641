// The fuzz targets' reader of their input bytes: numbers taken from the front, zeros once the input is
// exhausted, so that every input, however short, is a valid case.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace pxfuzz {

class Input {
  public:
    Input(const uint8_t *data, size_t size) : data_(data), size_(size) {}
    uint8_t byte() { return used_ < size_ ? data_[used_++] : 0; }
    // The next sizeof(T) bytes as a T; missing bytes are zero.
    template <typename T> T raw() {
        T value{};
        const size_t n = size_ - used_ < sizeof(T) ? size_ - used_ : sizeof(T);
        if (n > 0)
            std::memcpy(&value, data_ + used_, n);
        used_ += n;
        return value;
    }
    int32_t small() { return (int16_t)raw<uint16_t>(); }
    // An entry of the menu chosen by the next byte, or (for a byte of 200 or more) raw bytes.
    template <typename T> T choose(const std::vector<T> &menu) {
        const uint8_t choice = byte();
        return choice < 200 ? menu[choice % menu.size()] : raw<T>();
    }
    // The bytes not yet taken, for the pixels (may be empty).
    const uint8_t *rest(size_t *count) const {
        *count = size_ - used_;
        return data_ + used_;
    }

  private:
    const uint8_t *data_;
    size_t size_;
    size_t used_ = 0;
};

} // namespace pxfuzz
