#ifndef ZUSKUX_HAI_H_
#define ZUSKUX_HAI_H_

#include <memory>

#include "zuskux/export.h"

class HalL3MplsEncapsulationClient;

namespace dest_mng {

class HaiDestClientCallback;

/// The library's entry point: a registry of the two objects that connect it to the HAL, the HAL
/// client (requests) and the callback object (results).
///
/// A host program starts up like this:
///
///     Hai* hai = Hai::GetInstance();
///     hai->set_client(client);                            // requests go to `client` from now on
///     client_library.SetResults(hai->hal_encap_callback());
///     client_library.OnServerFound(&HaiDestClientCallback::HalServerFoundCallback);
///
/// `GetInstance` may be called on any thread. The accessors are unsynchronised: register the client
/// before requests flow, or serialise the accesses.
class ZUSKUX_EXPORT Hai {
 public:
  /// The process-wide instance, built on first use and destroyed at exit or when the library is
  /// unloaded. Throws if the callback object cannot be allocated; the next call tries again.
  static Hai* GetInstance();

  Hai();
  Hai(const Hai&) = delete;
  Hai& operator=(const Hai&) = delete;

  /// Deletes the callback object, but not the client, which its owner keeps.
  virtual ~Hai();

  /// The registered HAL client, or null. Not owned.
  HalL3MplsEncapsulationClient* client() const { return client_; }

  /// Registers `client`, which the caller keeps; null unregisters. The previous client is neither
  /// deleted nor notified.
  void set_client(HalL3MplsEncapsulationClient* client) { client_ = client; }

  /// The object that receives the HAL's results. Owned by this registry; never null.
  HaiDestClientCallback* hal_encap_callback() const { return callback_.get(); }

 private:
  HalL3MplsEncapsulationClient* client_ = nullptr;
  std::unique_ptr<HaiDestClientCallback> callback_;
};

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_H_
