#pragma once
// Fixed-width integer names used across the framework and the library, and the framework's
// string values. U8..U64 live in the global namespace because every layer spells them bare.

#include <cstdint>
#include <string>
#include <string_view>

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;

namespace Kel {

// A framework string is a plain std::string: the library needs value semantics and cheap moves,
// nothing more. Name is the same type under the name that attribute keys use.
using String = std::string;
using Name = std::string;

// The framework's string hash. Empty strings hash to 0, which symbol hashes rely on.
// FNV-1a style mixing started from 0 rather than the usual offset basis for that reason.
constexpr U32 stringHash(std::string_view s) noexcept {
   U32 h = 0;
   for (unsigned char c : s) {
      h ^= c;
      h *= 16777619u;
   }
   return h;
}

}  // namespace Kel
