#include "Kel/Trace.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <vector>

namespace Kel {

namespace {

struct Registry {
   std::mutex mutex;
   std::vector<TraceHandle*> handles;
   std::map<std::string, int, std::less<>> named;
   int all = -1;
   Trace::Sink sink;
   bool envRead = false;

   // Reads RPOLICY_TRACE once, the first time any handle or setting is touched.
   void readEnvLocked();
   int levelForLocked(std::string_view name) const {
      auto it = named.find(name);
      return it != named.end() ? it->second : all;
   }
};

Registry& registry() {
   static Registry r;
   return r;
}

std::string_view trim(std::string_view s) {
   while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
   while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
   return s;
}

// Parses the list into (name, level) pairs; returns false if any item was malformed.
bool parseLevelList(std::string_view levels, std::vector<std::pair<std::string, int>>& out) {
   bool ok = true;
   while (!levels.empty()) {
      const auto comma = levels.find(',');
      std::string_view item = trim(levels.substr(0, comma));
      levels = comma == std::string_view::npos ? std::string_view{} : levels.substr(comma + 1);
      if (item.empty()) continue;
      const auto eq = item.find('=');
      if (eq == std::string_view::npos) {
         ok = false;
         continue;
      }
      std::string_view name = trim(item.substr(0, eq));
      std::string_view num = trim(item.substr(eq + 1));
      int level = 0;
      auto [p, ec] = std::from_chars(num.data(), num.data() + num.size(), level);
      if (name.empty() || ec != std::errc{} || p != num.data() + num.size() || level < -1 ||
          level > 9) {
         ok = false;
         continue;
      }
      out.emplace_back(std::string(name), level);
   }
   return ok;
}

void applyLocked(Registry& r, const std::vector<std::pair<std::string, int>>& items) {
   for (const auto& [name, level] : items) {
      if (name == "*") {
         r.all = level;
         r.named.clear();
      } else {
         r.named[name] = level;
      }
   }
   for (TraceHandle* h : r.handles) h->levelIs(r.levelForLocked(h->name()));
}

void Registry::readEnvLocked() {
   if (envRead) return;
   envRead = true;
   if (const char* env = std::getenv("RPOLICY_TRACE")) {
      std::vector<std::pair<std::string, int>> items;
      if (!parseLevelList(env, items)) {
         std::fprintf(stderr, "RPOLICY_TRACE: ignoring malformed items in '%s'\n", env);
      }
      applyLocked(*this, items);
   }
}

std::string_view baseName(const char* file) {
   std::string_view f(file);
   const auto slash = f.rfind('/');
   return slash == std::string_view::npos ? f : f.substr(slash + 1);
}

}  // namespace

TraceHandle::TraceHandle(const char* name) : name_(name) {
   Registry& r = registry();
   std::lock_guard lock(r.mutex);
   r.readEnvLocked();
   r.handles.push_back(this);
   levelIs(r.levelForLocked(name));
}

TraceHandle::~TraceHandle() {
   Registry& r = registry();
   std::lock_guard lock(r.mutex);
   std::erase(r.handles, this);
}

void TraceHandle::write(const char* file, unsigned line, std::string_view machine,
                        std::string_view text) const {
   std::string out;
   out.reserve(machine.size() + text.size() + 48);
   out.append(baseName(file));
   out += ':';
   out += std::to_string(line);
   out += ' ';
   out.append(machine);
   out += ' ';
   out.append(text);
   Registry& r = registry();
   std::lock_guard lock(r.mutex);
   if (r.sink) {
      r.sink(out);
   } else {
      out += '\n';
      std::fwrite(out.data(), 1, out.size(), stderr);
   }
}

void Trace::sinkIs(Sink sink) {
   Registry& r = registry();
   std::lock_guard lock(r.mutex);
   r.sink = std::move(sink);
}

void Trace::levelIs(std::string_view name, int level) {
   Registry& r = registry();
   std::lock_guard lock(r.mutex);
   r.readEnvLocked();
   applyLocked(r, {{std::string(name), level}});
}

void Trace::levelAllIs(int level) {
   Registry& r = registry();
   std::lock_guard lock(r.mutex);
   r.readEnvLocked();
   applyLocked(r, {{"*", level}});
}

bool Trace::configure(std::string_view levels) {
   std::vector<std::pair<std::string, int>> items;
   const bool ok = parseLevelList(levels, items);
   Registry& r = registry();
   std::lock_guard lock(r.mutex);
   r.readEnvLocked();
   applyLocked(r, items);
   return ok;
}

int Trace::level(std::string_view name) {
   Registry& r = registry();
   std::lock_guard lock(r.mutex);
   r.readEnvLocked();
   return r.levelForLocked(name);
}

}  // namespace Kel
