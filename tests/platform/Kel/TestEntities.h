#pragma once
// A small notifying entity and a recording reactor, shared by the framework tests.

#include <functional>
#include <string>
#include <vector>

#include "Kel/Entity.h"

namespace kel_test {

class Gadget : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<Gadget> {
   public:
      virtual void handleColor() {}
      virtual void handlePart(U32) {}
   };

   static inline int live = 0;
   explicit Gadget(std::string name = "g") : name_(std::move(name)) { ++live; }
   ~Gadget() override { --live; }

   const std::string& name() const { return name_; }
   int color() const { return color_; }
   void colorIs(int c) { setAttr(color_, c, &Reactor::handleColor); }

   Kel::Ptr<Gadget const> part(U32 k) const { return part_.get(k); }
   bool partHas(U32 k) const { return part_.has(k); }
   std::size_t parts() const { return part_.size(); }
   // A null value deletes, the rule of clause maps.
   void partIs(U32 k, Kel::Ptr<Gadget const> g) {
      if (!g) return partDel(k);
      if (part_.set(k, std::move(g))) notify(&Reactor::handlePart, k);
   }
   void partDel(U32 k) {
      if (part_.del(k)) notify(&Reactor::handlePart, k);
   }
   void partDelAll() {
      part_.delAll([this](U32 k) { notify(&Reactor::handlePart, k); });
   }

private:
   std::string name_;
   int color_ = 0;
   Kel::Collection<U32, Kel::Ptr<Gadget const>> part_;
};

// Records what it hears as text ("color:<value>", "part:<key>") and runs an optional action
// from inside the handler.
class Recorder : public Gadget::Reactor {
public:
   explicit Recorder(std::vector<std::string>* log, std::string tag = "")
       : log_(log), tag_(std::move(tag)) {}
   std::function<void()> onColor;
   std::function<void(U32)> onPart;

   void handleNotifierIs() override { log_->push_back(tag_ + "bound"); }
   void handleColor() override {
      log_->push_back(tag_ + "color:" + std::to_string(notifier()->color()));
      if (onColor) onColor();
   }
   void handlePart(U32 k) override {
      log_->push_back(tag_ + "part:" + std::to_string(k));
      if (onPart) onPart(k);
   }

private:
   std::vector<std::string>* log_;
   std::string tag_;
};

}  // namespace kel_test
