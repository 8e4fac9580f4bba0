#include "Termout/RendererV2.h"

#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "Kel/Assert.h"

namespace Termout {

using Json = nlohmann::ordered_json;

struct RendererV2::Impl {
   Json root;
   // The containers still open, innermost last. The pointers stay valid because only the
   // innermost container grows: its parent's storage is left alone until it is closed.
   std::vector<Json*> open;
   bool started = false;

   Json& keyedSlot(std::string_view key);
   Json& unkeyedSlot(bool container);
   void openContainer(Json& slot, Json value);
   void close(bool dict);
};

Json& RendererV2::Impl::keyedSlot(std::string_view key) {
   KEL_ASSERT(!open.empty() && open.back()->is_object() && "a keyed item only goes into a dict");
   // ordered_json searches the keys on every insert anyway, so refusing duplicates is free.
   auto [it, inserted] = open.back()->emplace(std::string(key), nullptr);
   KEL_ASSERT(inserted && "each key appears once per dict");
   return it.value();
}

Json& RendererV2::Impl::unkeyedSlot(bool container) {
   if (open.empty()) {
      KEL_ASSERT(container && "a value needs an enclosing dict or list");
      KEL_ASSERT(!started && "the document already has a root");
      started = true;
      return root;
   }
   Json& parent = *open.back();
   KEL_ASSERT(parent.is_array() && "an item without a key only goes into a list");
   parent.push_back(nullptr);
   return parent.back();
}

void RendererV2::Impl::openContainer(Json& slot, Json value) {
   slot = std::move(value);
   open.push_back(&slot);
}

void RendererV2::Impl::close(bool dict) {
   KEL_ASSERT(!open.empty() && "closing with nothing open");
   KEL_ASSERT(open.back()->is_object() == dict && "closing a different kind than was opened");
   open.pop_back();
}

RendererV2::RendererV2() : impl_(std::make_unique<Impl>()) {}
RendererV2::~RendererV2() = default;
RendererV2::RendererV2(RendererV2&&) noexcept = default;
RendererV2& RendererV2::operator=(RendererV2&&) noexcept = default;

void RendererV2::startDict(std::string_view key) {
   impl_->openContainer(impl_->keyedSlot(key), Json::object());
}
void RendererV2::startDict() {
   impl_->openContainer(impl_->unkeyedSlot(true), Json::object());
}
void RendererV2::endDict() {
   impl_->close(true);
}

void RendererV2::startList(std::string_view key) {
   impl_->openContainer(impl_->keyedSlot(key), Json::array());
}
void RendererV2::startList() {
   impl_->openContainer(impl_->unkeyedSlot(true), Json::array());
}
void RendererV2::endList() {
   impl_->close(false);
}

void RendererV2::addString(std::string_view key, std::string_view value) {
   impl_->keyedSlot(key) = std::string(value);
}
void RendererV2::addBool(std::string_view key, bool value) {
   impl_->keyedSlot(key) = value;
}
void RendererV2::addInt(std::string_view key, std::int64_t value) {
   impl_->keyedSlot(key) = value;
}
void RendererV2::addUint(std::string_view key, U64 value) {
   impl_->keyedSlot(key) = value;
}
void RendererV2::addDouble(std::string_view key, double value) {
   impl_->keyedSlot(key) = value;
}
void RendererV2::addNull(std::string_view key) {
   impl_->keyedSlot(key) = nullptr;
}

void RendererV2::addString(std::string_view value) {
   impl_->unkeyedSlot(false) = std::string(value);
}
void RendererV2::addBool(bool value) {
   impl_->unkeyedSlot(false) = value;
}
void RendererV2::addInt(std::int64_t value) {
   impl_->unkeyedSlot(false) = value;
}
void RendererV2::addUint(U64 value) {
   impl_->unkeyedSlot(false) = value;
}
void RendererV2::addDouble(double value) {
   impl_->unkeyedSlot(false) = value;
}
void RendererV2::addNull() {
   impl_->unkeyedSlot(false) = nullptr;
}

std::string RendererV2::str(bool pretty) const {
   KEL_ASSERT(impl_->started && impl_->open.empty() && "str() needs a closed root");
   // Names in a log come from configuration and may hold any bytes; throwing on bad UTF-8 would
   // lose the whole log over one name.
   return impl_->root.dump(pretty ? 2 : -1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace Termout
