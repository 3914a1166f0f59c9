#include "server_session.h"

#include "explain.h"
#include "failure.h"
#include "instance_lookup.h"
#include "interrupt.h"
#include "progress.h"

namespace orrery::tool {

ServerSession::ServerSession(Context& context, const std::string& nameOrId)
    : context_(context), record_(findInstance(context, nameOrId)), session_(static_cast<long>(record_.id), rc_) {
  if (rc_ != 0) fail("no session with " + record_.name);
}

int ServerSession::attempt(const Operation& operation) {
  int rc = 0;
  {
    const Progress progress("waiting for " + record_.name, context_.wantsProgress());
    session_.clearErrors();
    rc = operation(session_);
  }
  if (interruptSignal() != 0) throw Interrupted();
  return rc;
}

void ServerSession::fail(const std::string& what) const {
  throwSessionFailure(context_, record_, session_, what);
}

}  // namespace orrery::tool
