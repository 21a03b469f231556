#pragma once

#include <nats/nats.h>

#include <memory>
#include <string>
#include <string_view>

// The client library's objects with their owners, and what its answers mean. Any thread.
namespace host::engine {

template <class Type, auto DESTROY>
struct Destroyer {
    void operator()(Type* object) const { DESTROY(object); }
};
template <class Type, auto DESTROY>
using Owned = std::unique_ptr<Type, Destroyer<Type, DESTROY>>;

using Options = Owned<natsOptions, natsOptions_Destroy>;
using Connection = Owned<natsConnection, natsConnection_Destroy>;
using Context = Owned<jsCtx, jsCtx_Destroy>;
using NatsMessage = Owned<natsMsg, natsMsg_Destroy>;
using Subscription = Owned<natsSubscription, natsSubscription_Destroy>;
using StreamInfo = Owned<jsStreamInfo, jsStreamInfo_Destroy>;
using ConsumerInfo = Owned<jsConsumerInfo, jsConsumerInfo_Destroy>;
using MetaData = Owned<jsMsgMetaData, jsMsgMetaData_Destroy>;

// The library's own words about the last call of this thread.
std::string Reason(natsStatus status);
// Of a message, as long as it lives.
std::string_view Data(natsMsg* message);
// Whether a broken connection made that of a request.
bool IsLoss(natsStatus status);
// Whether the last call of this thread was refused because the servers of a cluster choose a new leader.
bool IsElection(natsStatus status);

}  // namespace host::engine
