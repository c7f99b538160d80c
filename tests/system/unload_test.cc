// A host program that loads the library at run time, uses only its exported symbols, and unloads it
// again.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>

#include "dest_manager/db_objects.h"
#include "dest_manager/ecmp_data.h"
#include "dest_manager/vrf_data.h"
#include "dest_mng.pb.h"
#include "hal_client/hal_l3_mpls_encapsulation_client_callback_itf.h"
#include "tests/support/allocations.h"
#include "tests/support/events.h"
#include "tests/system/keeping_hal_client.h"
#include "tests/system/recording_handlers.h"
#include "zuskux/hai.h"
#include "zuskux/hai_l3_mpls_encapsulation.h"

namespace {

using dest_mng::Hai;
using ::testing::ElementsAre;

// The library while it is loaded.
class Library {
 public:
  Library() : handle_(dlopen(ZUSKUX_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {}
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
  ~Library() {
    if (handle_ != nullptr) dlclose(handle_);
  }

  bool loaded() const { return handle_ != nullptr; }

  template <typename Function>
  Function* Find(const char* symbol) const {
    void* const found = dlsym(handle_, symbol);
    EXPECT_NE(found, nullptr) << symbol;
    return reinterpret_cast<Function*>(found);
  }

 private:
  void* handle_;
};

bool IsLoaded() {
  void* const handle = dlopen(ZUSKUX_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) dlclose(handle);
  return handle != nullptr;
}

// An adapter, created and destroyed through its exported constructor and destructor.
class Adapter {
 public:
  Adapter(const Library& library, const std::string& constructor, const std::string& destructor)
      : destroy_(library.Find<void(void*)>(destructor.c_str())) {
    library.Find<void(void*)>(constructor.c_str())(storage_);
  }
  Adapter(const Adapter&) = delete;
  Adapter& operator=(const Adapter&) = delete;
  ~Adapter() { destroy_(storage_); }

  dest_mng::HaiL3MplsEncapsulation* operator->() {
    return reinterpret_cast<dest_mng::HaiL3MplsEncapsulation*>(storage_);
  }

 private:
  alignas(void*) std::byte storage_[sizeof(dest_mng::HaiL3MplsEncapsulation)];
  void (*destroy_)(void*);
};

dest_mng::DbVlanObject VlanTwelve() {
  dest_mng::DbVlanObject vlan;
  auto record = std::make_unique<dest_mng::DestVlanMessage>();
  record->set_vlan_dest_id(12);
  record->set_lim_id("abcd");
  vlan.record = std::move(record);
  vlan.list_attribute_name = "interfaces";
  return vlan;
}

TEST(UnloadTest, AHostCanLoadRunAndUnloadTheLibrary) {
  KeepingHalClient client;
  testing_support::Events().clear();
  {
    const Library library;
    ASSERT_TRUE(library.loaded()) << dlerror();

    Hai* const hai = library.Find<Hai*()>("_ZN8dest_mng3Hai11GetInstanceEv")();
    hai->set_client(&client);

    auto vlan = VlanTwelve();
    Adapter adapter(library, "_ZN8dest_mng26HaiL3MplsEncapsulationVlanC1Ev",
                    "_ZN8dest_mng26HaiL3MplsEncapsulationVlanD1Ev");
    EXPECT_EQ(adapter->CreateDestination(&vlan), 0);
    EXPECT_EQ(adapter->UpdateDestination(&vlan), 0);
    EXPECT_EQ(adapter->DeleteDestination(&vlan), 0);

    dest_mng::EcmpData ecmp;
    ecmp.db_id = 7;
    ecmp.nhops = {12, 15};
    std::byte stateless{};
    library.Find<void(void*, const dest_mng::EcmpData&)>(
        "_ZN8dest_mng26HaiL3MplsEncapsulationEcmp11InstallEcmpERKNS_8EcmpDataE")(&stateless, ecmp);
    library.Find<int(void*, const dest_mng::VrfData&)>(
        "_ZN8dest_mng25HaiL3MplsEncapsulationVrf10InstallVrfERKNS_7VrfDataE")(
        &stateless, dest_mng::VrfData{5, 6});
    EXPECT_THAT(client.requests, ElementsAre("InstallVlan lim_id: \"abcd\" vlan_destination_id: 12",
                                             "ReplaceVlan lim_id: \"abcd\" vlan_destination_id: 12",
                                             "DestroyVlan lim_id: \"abcd\" vlan_destination_id: 12",
                                             "InstallEcmp db_id: 7 members: 12 members: 15",
                                             "InstallVrf vrf_id: 5"));

    auto* const results =
        reinterpret_cast<HalL3MplsEncapsulationClientCallbackItf*>(hai->hal_encap_callback());
    results->InstallVlanOutgoingEncapsulationResCallback({}, 12);
    results->ReplaceMplsUnprotectedOutgoingEncapsulationResCallback(
        HalL3MplsEncapsulationReturnCode{1}, 5, 9);
    library.Find<void(void*)>("_ZN8dest_mng21HaiDestClientCallback22HalServerFoundCallbackEPv")(
        nullptr);
    EXPECT_THAT(HandlerCalls(),
                ElementsAre("CreatedDestVlanSuccess db_id: 12",
                            "UpdatedDestMplsError db_id: 5 secondary_id: 9", "ReinstallVrf",
                            "ReinstallDestVlan", "ReinstallDestHost", "ReinstallDestEcmp",
                            "ReinstallDestMpls"));

    testing_support::WatchDeletion(hai->hal_encap_callback());
    EXPECT_TRUE(IsLoaded());
    EXPECT_THAT(testing_support::Events(), ElementsAre());
  }
  EXPECT_FALSE(IsLoaded());
  EXPECT_THAT(testing_support::Events(), ElementsAre("message freed"));
}

}  // namespace
