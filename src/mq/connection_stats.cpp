// The statistics of one connection: its module of class "MQConnection",
// the figures the client counts into it, and the answer to the statistics
// requests a Get takes.
#include <new>

#include "log/log_site.h"
#include "mq/connection.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqstat.h"

namespace zq::mq {
namespace {

constexpr const char* kConnectionClass = "MQConnection";

}  // namespace

std::uint32_t CConnection::OpenStatistics() noexcept {
  stat::CStatRegistry* registry = stat::CurrentStatRegistry();
  if (registry == nullptr) return ZQERR_COMMON_INTERNAL_ERROR;
  common::CRef<stat::CStatModule> module;
  try {
    if (const std::uint32_t rc = registry->Register(kConnectionClass, nullptr, module); rc != 0) {
      return rc;
    }
    using stat::Kind;
    const struct {
      const char* name;
      Kind kind;
      stat::CStatValue** slot;
    } values[] = {
        {"Handle", Kind::kGauge, &figures_.handle},
        {"AppName", Kind::kText, &figures_.appName},
        {"Router", Kind::kText, &figures_.router},
        {"Connected", Kind::kGauge, &figures_.connected},
        {"Posted", Kind::kCounter, &figures_.posted},
        {"Sent", Kind::kCounter, &figures_.sent},
        {"Received", Kind::kCounter, &figures_.received},
        {"BytesOut", Kind::kCounter, &figures_.bytesOut},
        {"BytesIn", Kind::kCounter, &figures_.bytesIn},
        {"Reconnects", Kind::kCounter, &figures_.reconnects},
    };
    for (const auto& value : values)
      module->AddValue(value.name, value.kind, *value.slot);
    service_ = common::CRef<stat::CStatService>(os::NewObject<stat::CStatService>(module.Share()));
  } catch (const std::bad_alloc&) {
  }
  if (!service_) {
    if (module) registry->Unregister(module->Id());
    figures_ = Figures{};
    return ZQERR_COMMON_NO_MEMORY;
  }
  link_.Io().bytesIn = figures_.bytesIn;
  link_.Io().bytesOut = figures_.bytesOut;
  return 0;
}

void CConnection::CloseStatistics() noexcept {
  stat::CStatRegistry* registry = stat::CurrentStatRegistry();
  if (registry != nullptr && service_) registry->Unregister(service_->Module().Id());
}

void CConnection::CountPosted(std::uint32_t type) noexcept {
  (type == kLLPost || type == kLLReply ? figures_.posted : figures_.sent)->Add(1);
}

void CConnection::CountReceived(std::uint32_t type) noexcept {
  switch (type) {
    case kLLPosted:
    case kLLReply:
    case kLLRequest:
    case kLLSyncReplyResult:
    case kLLGrntMessage:
    case kLLTimeSync:
      figures_.received->Add(1);
      break;
    default:
      break;
  }
}

std::uint32_t CConnection::AnswerStatRequest(HZQMSG request) noexcept {
  stat::CStatRegistry* registry = stat::CurrentStatRegistry();
  if (!service_->Answering() || registry == nullptr) return 0;
  MessageRef reply;
  std::uint32_t rc = stat::BuildReply(*registry, request, reply.Out());
  if (rc != 0) {
    ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kLogCategory, "Couldn't prepare statistics reply");
    return 1;
  }
  rc = PostReplyLocked(request, reply.Get(), true);
  if (rc != 0) {
    ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kLogCategory, "Couldn't post statistics reply");
  }
  return 1;
}

}  // namespace zq::mq
