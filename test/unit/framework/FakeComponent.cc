#include "FakeComponent.h"

#include <array>
#include <stdexcept>

namespace {

constexpr int kSlots = 4;
std::array<std::string, kSlots> slotNames;
std::array<PymReturnT, kSlots> startAnswers;

template <int slot>
PymReturnT start(PymStateChangeReason reason) {
  FakeComponent::events().push_back("start " + slotNames[slot] + " " + std::to_string(reason));
  return startAnswers[slot];
}

template <int slot>
PymReturnT stop(PymStateChangeReason reason) {
  FakeComponent::events().push_back("stop " + slotNames[slot] + " " + std::to_string(reason));
  return PymOk;
}

const std::array<PymReturnT (*)(PymStateChangeReason), kSlots> starts = {start<0>, start<1>, start<2>, start<3>};
const std::array<PymReturnT (*)(PymStateChangeReason), kSlots> stops = {stop<0>, stop<1>, stop<2>, stop<3>};

}  // namespace

FakeComponent::FakeComponent(int slot, const std::string& name, bool offersImplementerTables)
    : _slot(slot), _name(name), _managedObject(), _resource(), _dependencies{nullptr}, _descriptor() {
  if (slot < 0 || slot >= kSlots) throw std::out_of_range("FakeComponent slot");
  slotNames[slot] = name;
  startAnswers[slot] = PymOk;
  _managedObject.base = {_name.c_str(), "PymOamSpiManagedObject", "3"};
  _resource.base = {_name.c_str(), "PymOamSpiTransactionalResource", "2"};
  if (offersImplementerTables) _interfaces = {&_managedObject.base, &_resource.base};
  _interfaces.push_back(nullptr);
  _descriptor.base = {_name.c_str(), "PymMgmtSpiComponent", "2"};
  _descriptor.interfaceArray = _interfaces.data();
  _descriptor.dependencyArray = _dependencies.data();
  _descriptor.start = starts[slot];
  _descriptor.stop = stops[slot];
}

PymMgmtSpiComponent_2* FakeComponent::descriptor() { return &_descriptor; }

PymMgmtSpiInterface_1* FakeComponent::managedObject() { return &_managedObject.base; }

PymMgmtSpiInterface_1* FakeComponent::transactionalResource() { return &_resource.base; }

void FakeComponent::addDependency(const char* componentName, const char* interfaceName,
                                  const char* interfaceVersion) {
  _dependencyIdentities.push_back({componentName, interfaceName, interfaceVersion});
  _dependencies.insert(_dependencies.end() - 1, &_dependencyIdentities.back());
  _descriptor.dependencyArray = _dependencies.data();
}

void FakeComponent::answerStart(PymReturnT code) { startAnswers[_slot] = code; }

std::vector<std::string>& FakeComponent::events() {
  static std::vector<std::string> recorded;
  return recorded;
}
