#pragma once
// Machines are entities that react: they follow other entities through nested reactors and
// produce output. Their handleInitialized() runs exactly once, after construction, when the
// object is fully built and its inputs are bound; constructors never call virtuals.

#include <type_traits>
#include <utility>

#include "Kel/Entity.h"

namespace Kel {

class Machine : public Entity {
public:
   bool initialized() const { return initialized_; }

   // Runs handleInitialized() the first time; later calls do nothing.
   void initialize() {
      if (initialized_) return;
      initialized_ = true;
      handleInitialized();
   }

protected:
   virtual void handleInitialized() {}

private:
   bool initialized_ = false;
};

// Makes a counted object; for a machine, also initialises it before anybody else sees it.
template <class T, class... Args>
Ptr<T> create(Args&&... args) {
   Ptr<T> p(new T(std::forward<Args>(args)...));
   if constexpr (std::is_base_of_v<Machine, T>) p->initialize();
   return p;
}

}  // namespace Kel
