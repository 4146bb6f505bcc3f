#include "capture_tap.h"

namespace rvlink {

void CaptureTap::write()
{
    for (const BusFrame &f : finder_.take())
        good_ = file_.write(f) && good_;
}

// Both directions go into one stream, as a listener hears them: the
// finder tells requests from replies.
void CaptureTap::heard(const std::uint8_t *data, std::size_t n, long long atUs)
{
    std::lock_guard<std::mutex> lock(mutex_);
    finder_.feed(data, n, atUs);
    write();
}

void CaptureTap::close()
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (!file_.isOpen())
        return;
    finder_.finish();
    write();
    file_.close();
}

}  // namespace rvlink
