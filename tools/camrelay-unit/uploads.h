// An upload in progress: the opening's own text and the elements that
// follow it, each kept under its element number so that a resend lands on
// the same place as the original.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace camrelay::unit {

struct ReceivedFile {
  std::string name;
  std::string bytes;
};

class Upload {
 public:
  // rest: what the opening carries after the code (the first chunk of a
  // command on TCP, the argument of a preview request).
  Upload(std::string tipo, int count, std::string rest);

  const std::string& tipo() const { return tipo_; }
  int count() const { return count_; }
  // The number the next element that arrives in order takes.
  int NextOrdinal() const { return next_; }
  // Keeps element `ordinal` (1..count); false when it is out of range.
  bool Store(int ordinal, std::string element);
  bool Complete() const;

  // Record texts placed by their own packet index ("01", "55"), as the table
  // store takes them: element 0 unused.
  std::vector<std::string> RecordTexts() const;
  // The chunks joined ("50", "52", "08", and the new code of "07", "14").
  std::string Text() const;
  // The files of a voice or firmware upload ("05", "10") whose chunks have
  // all arrived, byte for byte as they were sent.
  std::vector<ReceivedFile> Files() const;

 private:
  std::string tipo_;
  int count_;
  std::string rest_;
  int next_ = 1;
  std::map<int, std::string> elements_;
};

}  // namespace camrelay::unit
