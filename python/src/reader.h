// A file decoded from its first picture to its last: the container's packets
// through one session, the pictures the decoder still holds drained at the end
// (unless strict), each picture given its presentation time.
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "container.h"
#include "session.h"

namespace corvane::python {

class FileReader {
 public:
  // Throws as Container and Session do.
  FileReader(const std::string& path, Stage stage, bool strict);

  // The next picture and its time in seconds (`timed` false when the container
  // has none); false after the last. Packets the decoder refuses are counted
  // and passed over; other failures of the library throw LibraryError.
  bool Next(Picture& picture, double& pts, bool& timed);

  const Container& container() const { return container_; }
  int64_t packets() const { return packets_; }
  int64_t refused() const { return refused_; }

 private:
  Container container_;
  Session session_;
  // The presentation times of the packets fed whose pictures haven't come
  // out: pictures come out in presentation order, so each takes the earliest.
  std::multiset<double> times_;
  bool timed_ = true;  // false once a packet had no time
  bool fed_ = false;   // every packet has been fed
  int64_t packets_ = 0;
  int64_t refused_ = 0;
};

}  // namespace corvane::python
