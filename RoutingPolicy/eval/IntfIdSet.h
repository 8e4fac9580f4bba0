#pragma once
// The interfaces of a route, as an InterfaceMatcher tests them. A hash set because a route
// usually has one or a few interfaces and the matcher only asks "is this one among them".

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_set>

#include "Kel/Entity.h"
#include "Nx/IntfId.h"

namespace Routing::Policy {

class IntfIdSet : public Kel::Entity {
public:
   using Set = std::unordered_set<Nx::IntfId>;

   class Reactor : public Kel::ReactorFor<IntfIdSet> {
   public:
      virtual void handleIntfId(const Nx::IntfId&) {}
   };

   bool intfIdHas(const Nx::IntfId& id) const { return intfId_.find(id) != intfId_.end(); }
   void intfIdIs(const Nx::IntfId& id);
   void intfIdDel(const Nx::IntfId& id);
   void intfIdDelAll();

   std::size_t size() const { return intfId_.size(); }
   bool empty() const { return intfId_.empty(); }
   Set::const_iterator begin() const { return intfId_.begin(); }
   Set::const_iterator end() const { return intfId_.end(); }

   // Independent of the order in which members were added.
   U32 hash() const;
   bool operator==(const IntfIdSet& o) const { return intfId_ == o.intfId_; }

   // "['Ethernet1', 'Vlan10']", names in ascending order so that equal sets print alike.
   std::string toStrep() const;
   // Reads the form above back into a new set.
   static Kel::Ptr<IntfIdSet> fromStrep(std::string_view text);

private:
   Set intfId_;
};

Kel::Ptr<IntfIdSet> intfIdSetFactory();

}  // namespace Routing::Policy
