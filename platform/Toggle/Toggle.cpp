#include "Toggle/Toggle.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace Toggle {

namespace {

constexpr const char* kEnvVar = "RPOLICY_TOGGLES";

struct Overrides {
   std::mutex mutex;
   std::map<std::string, bool, std::less<>> states;
};

// A function-local static so that a toggle read during another translation unit's static
// initialisation still finds a constructed table.
Overrides& overrides() {
   static Overrides table;
   return table;
}

std::string_view trim(std::string_view s) {
   constexpr std::string_view kSpace = " \t\n\r\f\v";
   const auto first = s.find_first_not_of(kSpace);
   if (first == std::string_view::npos) return {};
   const auto last = s.find_last_not_of(kSpace);
   return s.substr(first, last - first + 1);
}

bool equalsIgnoreCase(std::string_view a, std::string_view b) {
   if (a.size() != b.size()) return false;
   for (std::size_t i = 0; i < a.size(); ++i) {
      const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
      if (lower(a[i]) != lower(b[i])) return false;
   }
   return true;
}

std::optional<bool> parseState(std::string_view value) {
   for (std::string_view on : {"on", "true", "1"}) {
      if (equalsIgnoreCase(value, on)) return true;
   }
   for (std::string_view off : {"off", "false", "0"}) {
      if (equalsIgnoreCase(value, off)) return false;
   }
   return std::nullopt;
}

// Only entries for `name` are examined, so a typo in some other toggle's entry does not print a
// warning on every lookup of every toggle.
std::optional<bool> environmentState(std::string_view name) {
   const char* env = std::getenv(kEnvVar);
   if (env == nullptr) return std::nullopt;
   std::optional<bool> state;
   std::string_view rest = env;
   while (!rest.empty()) {
      const auto comma = rest.find(',');
      const std::string_view item = rest.substr(0, comma);
      rest = comma == std::string_view::npos ? std::string_view{} : rest.substr(comma + 1);

      const auto eq = item.find('=');
      if (trim(item.substr(0, eq)) != name) continue;
      const std::string_view value = eq == std::string_view::npos ? "" : trim(item.substr(eq + 1));
      if (const auto parsed = parseState(value)) {
         state = parsed;
      } else {
         std::fprintf(stderr, "%s: ignoring unparseable value '%.*s' for toggle %.*s\n", kEnvVar,
                      int(value.size()), value.data(), int(name.size()), name.data());
      }
   }
   return state;
}

}  // namespace

bool getToggleState(std::string_view name, bool defaultValue) {
   {
      Overrides& o = overrides();
      std::lock_guard lock(o.mutex);
      if (const auto it = o.states.find(name); it != o.states.end()) return it->second;
   }
   return environmentState(name).value_or(defaultValue);
}

void toggleStateIs(std::string_view name, bool state) {
   Overrides& o = overrides();
   std::lock_guard lock(o.mutex);
   o.states.insert_or_assign(std::string(name), state);
}

void toggleStateDel(std::string_view name) {
   Overrides& o = overrides();
   std::lock_guard lock(o.mutex);
   if (const auto it = o.states.find(name); it != o.states.end()) o.states.erase(it);
}

void toggleStateDelAll() {
   Overrides& o = overrides();
   std::lock_guard lock(o.mutex);
   o.states.clear();
}

}  // namespace Toggle
