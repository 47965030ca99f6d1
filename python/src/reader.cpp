#include "reader.h"

namespace corvane::python {

FileReader::FileReader(const std::string& path, Stage stage, bool strict)
    : container_(path), session_(container_.codec(), stage, strict) {}

bool FileReader::Next(Picture& picture, double& pts, bool& timed) {
  bool got = false;
  while (!got && !fed_) {
    Packet packet;
    if (!container_.Next(packet)) {
      fed_ = true;
      break;
    }
    ++packets_;
    timed_ = timed_ && packet.timed;
    const auto time = timed_ ? times_.insert(packet.pts) : times_.end();
    try {
      got = session_.Feed(packet.data, packet.size);
    } catch (const LibraryError& e) {
      if (e.code() != ResultDecodeFailed) throw;
      // A damaged packet: its time goes with it, and the stream goes on.
      ++refused_;
      if (time != times_.end()) times_.erase(time);
    }
  }
  if (!got && !session_.Drain()) return false;
  picture = session_.TakePicture();
  timed = timed_ && !times_.empty();
  pts = timed ? *times_.begin() : 0.0;
  if (timed) times_.erase(times_.begin());
  return true;
}

}  // namespace corvane::python
