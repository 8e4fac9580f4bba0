#pragma once
// Structured values taken from a fuzz input, front to back. An exhausted input reads as zeros,
// so every input, however short, builds something and the mutator never meets a dead end.

#include <cstddef>
#include <cstdint>

namespace fuzz {

class Bytes {
public:
   Bytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

   std::uint8_t byte() { return pos_ < size_ ? data_[pos_++] : 0; }
   bool flag() { return byte() & 1; }
   std::uint32_t u16() { return static_cast<std::uint32_t>(byte()) << 8 | byte(); }
   std::uint32_t u32() { return u16() << 16 | u16(); }
   std::uint64_t u64() { return static_cast<std::uint64_t>(u32()) << 32 | u32(); }
   // 0 to n - 1; n must not be 0.
   std::uint32_t below(std::uint32_t n) { return byte() % n; }
   bool empty() const { return pos_ >= size_; }

private:
   const std::uint8_t* data_;
   std::size_t size_;
   std::size_t pos_ = 0;
};

}  // namespace fuzz
