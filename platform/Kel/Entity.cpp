#include "Kel/Entity.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <sstream>
#include <typeinfo>

#include "Kel/Assert.h"

namespace Kel {

Entity::~Entity() {
   // Reactors hold counted references to what they follow, so none can still be attached unless
   // the entity was never owned through a Ptr; unbind those so they do not point at freed memory.
   for (ReactorBase* r : reactors_) {
      if (r != nullptr) r->attached_ = nullptr;
   }
}

std::size_t Entity::reactorCount() const {
   return static_cast<std::size_t>(
       std::count_if(reactors_.begin(), reactors_.end(), [](auto* r) { return r != nullptr; }));
}

void Entity::attach(ReactorBase* r) const { reactors_.push_back(r); }

void Entity::detach(ReactorBase* r) const {
   auto it = std::find(reactors_.begin(), reactors_.end(), r);
   KEL_ASSERT(it != reactors_.end());
   if (notifyDepth_ > 0) {
      // The notification loop is indexing this vector; leave a hole and close it afterwards.
      *it = nullptr;
      compactPending_ = true;
   } else {
      reactors_.erase(it);
   }
}

void Entity::compact() const {
   std::erase(reactors_, nullptr);
   compactPending_ = false;
}

void Entity::formatDerivedType(std::ostream& os) const {
   const char* mangled = typeid(*this).name();
   int status = 0;
   std::unique_ptr<char, void (*)(void*)> demangled(
       abi::__cxa_demangle(mangled, nullptr, nullptr, &status), std::free);
   os << (status == 0 ? demangled.get() : mangled);
}

std::string Entity::printed() const {
   std::ostringstream os;
   formatDerivedType(os);
   return os.str();
}

std::ostream& operator<<(std::ostream& os, const Entity& e) {
   e.formatDerivedType(os);
   return os;
}

ReactorBase::~ReactorBase() { attachTo(nullptr); }

void ReactorBase::attachTo(const Entity* e) {
   if (attached_ == e) return;
   if (attached_ != nullptr) attached_->detach(this);
   attached_ = e;
   if (attached_ != nullptr) attached_->attach(this);
}

}  // namespace Kel
