// Placeholder until this subsystem lands; replaced wholesale by its owner.
#include "store/DataVideo.h"
namespace camrelay::store {
struct DataVideo::Impl { std::string connection{kDesignTimeConnection}; int state = 0; };
DataVideo::DataVideo() : impl_(std::make_unique<Impl>()) {}
DataVideo::~DataVideo() = default;
int DataVideo::ConnectionState() const { return impl_->state; }
const std::string& DataVideo::ConnectionString() const { return impl_->connection; }
void DataVideo::SetConnectionString(const std::string& c) { impl_->connection = c; }
void DataVideo::Open() { impl_->state = 1; }
void DataVideo::Close() { impl_->state = 0; }
void DataVideo::EnsureOpen(DebugSink*, std::string_view) { if (!impl_->state) { Open(); StatoDB = cDbAperto; } }
}  // namespace camrelay::store
