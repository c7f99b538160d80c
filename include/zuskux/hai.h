#ifndef ZUSKUX_HAI_H_
#define ZUSKUX_HAI_H_

#include <memory>

#include "zuskux/export.h"

class HalL3MplsEncapsulationClient;

namespace dest_mng {

class HaiDestClientCallback;

/// The entry point of the library: the registry of the two objects that connect it to the HAL, the
/// HAL client (requests) and the callback object (results).
///
/// Start-up of a host program:
///
///     Hai* hai = Hai::GetInstance();
///     hai->set_client(client);                            // requests go to `client` from now on
///     client_library.SetResults(hai->hal_encap_callback());
///     client_library.OnServerFound(&HaiDestClientCallback::HalServerFoundCallback);
///
/// `GetInstance` may be called on any thread. The accessors are plain reads and writes: register
/// the client before requests flow, or serialise the two.
class ZUSKUX_EXPORT Hai {
 public:
  /// The one instance of the process, built on first use and destroyed at exit or when the library
  /// is unloaded. Throws what the allocation of the callback object throws; the next call tries
  /// again.
  static Hai* GetInstance();

  Hai();
  Hai(const Hai&) = delete;
  Hai& operator=(const Hai&) = delete;

  /// Deletes the callback object. The client is left to its owner.
  virtual ~Hai();

  /// The registered HAL client, or null. Not owned.
  HalL3MplsEncapsulationClient* client() const { return client_; }

  /// Registers `client`, which stays the caller's; null unregisters. The earlier client is neither
  /// deleted nor told.
  void set_client(HalL3MplsEncapsulationClient* client) { client_ = client; }

  /// The object that takes the HAL's results. Owned by this registry; never null.
  HaiDestClientCallback* hal_encap_callback() const { return callback_.get(); }

 private:
  HalL3MplsEncapsulationClient* client_ = nullptr;
  std::unique_ptr<HaiDestClientCallback> callback_;
};

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_H_
