#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "dictation/deferred_paste.h"
#include "dictation/streaming_request.h"
#include "dictation/undelivered.h"

namespace kestrin {

enum class DeliveryOutcome {
  nothing,     ///< the stream brought no text
  inserted,    ///< all of it is in the document
  pasted,      ///< read back after the paste
  unverified,  ///< inserted or pasted, and nothing could be read back
  clipboard,   ///< not in the target: on the clipboard, and kept as undelivered
  kept,        ///< not in the target and not on the clipboard: kept as undelivered
  cancelled,   ///< the user stopped it
};

struct DeliveryReport {
  std::string requestId;
  DeliveryOutcome outcome = DeliveryOutcome::nothing;
  /// What did not arrive, or could not be confirmed; empty when all is well.
  std::string text;
  /// A line for the status when there is something to say ("⚠️ ..."), else empty.
  std::string message;
};

/// Brings the text of running requests to their targets: piece by piece in the background where the
/// target takes that, else collected for one paste at the end; what cannot be delivered goes to the
/// clipboard and the store. `deliver` and `finish` block on other programs and belong on one worker
/// queue, in order; the rest is thread-safe.
class RequestDelivery {
 public:
  RequestDelivery(InsertionPorts ports, Logger& logger, UndeliveredStore& undelivered);

  void begin(const std::string& id);
  void deliver(const StreamingRequest& request, const std::string& text);
  /// Everything that is still to be done for the request, and how it all ended.
  DeliveryReport finish(const StreamingRequest& request);
  /// What was collected will not be pasted.
  void dropCollected(const std::string& id);
  void forget(const std::string& id);

 private:
  /// How the text of a request fared so far.
  struct Delivery {
    std::string deferredPasteBuffer;  ///< collected for the paste at the end
    std::string unknownText;          ///< the insert of which nobody knows whether it happened
    bool inserted = false;
    bool unverified = false;
    /// Set where a later piece must not overtake an earlier one: everything that follows is
    /// collected.
    bool diverted = false;
  };

  /// Runs `change` on the request's delivery, under the guard.
  void update(const std::string& id, const std::function<void(Delivery&)>& change);
  DeliveryReport undeliverable(const StreamingRequest& request, const std::string& text,
                               const std::string& reason);

  InsertionPorts ports_;
  Logger& logger_;
  UndeliveredStore& undelivered_;
  DeferredPaste paste_;
  std::mutex mutex_;
  std::map<std::string, Delivery> deliveries_;  ///< guarded by `mutex_`
};

}  // namespace kestrin
