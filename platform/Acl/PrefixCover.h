#pragma once
// The minimal CIDR cover of a closed address range, shared by the IPv4 and IPv6 converters.
// Written on lengths rather than block sizes, because the block of a /0 (2^32 or 2^128
// addresses) does not fit the address type.

namespace Acl::detail {

// Host-bit mask of a prefix of length `len` in a `Bits`-wide address.
template <class T, unsigned Bits>
constexpr T hostMask(unsigned len) noexcept {
   return len == 0 ? static_cast<T>(~T{0}) : static_cast<T>((T{1} << (Bits - len)) - 1);
}

// Calls emit(address, len) for each prefix of the minimal cover of [first, last], in ascending
// address order. An empty range (first > last) emits nothing. `trailingZeros(T)` must answer Bits
// for 0.
template <class T, unsigned Bits, class TrailingZeros, class Emit>
void rangeToPrefixes(T first, T last, TrailingZeros trailingZeros, Emit&& emit) {
   if (first > last) return;
   for (;;) {
      // The longest block that starts at `first` is bounded by its alignment; shrink it until it
      // ends inside the range. At full length the block is `first` alone, so this stops.
      unsigned len = Bits - trailingZeros(first);
      T end = first | hostMask<T, Bits>(len);
      while (end > last) {
         ++len;
         end = first | hostMask<T, Bits>(len);
      }
      emit(first, len);
      // Stopping on equality rather than stepping past `last` is what keeps a range that ends at
      // the top address from wrapping to 0.
      if (end == last) return;
      first = end + 1;
   }
}

}  // namespace Acl::detail
