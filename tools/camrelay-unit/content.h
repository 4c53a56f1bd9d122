// What the unit has to give and where it keeps what it is given. The session
// only talks to this interface, so its protocol logic can be exercised
// without a database or a folder.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace camrelay::unit {

class Content {
 public:
  virtual ~Content() = default;

  // Table payloads as transfer arrays: element 0 the opening, elements 1..n
  // "{}" i "{}" length CR LF + whole record lines.
  virtual std::vector<std::string> Programmazione() = 0;
  virtual std::vector<std::string> Log() = 0;
  virtual std::vector<std::string> CamEvents() = 0;
  virtual std::vector<std::string> ProgCamEvents() = 0;
  // The voice messages named by the programming, in the voice layout:
  // element 0 the opening, then file headers and chunks, then "{}".
  virtual std::vector<std::string> VoiceMessages() = 0;
  // A snapshot or clip by its plain file name; nullopt when there is none.
  virtual std::optional<std::string> MediaFile(const std::string& name) = 0;
  // The current image of a camera (1..31); nullopt when it has none.
  virtual std::optional<std::string> PreviewImage(int camera) = 0;
  virtual int LogSize() = 0;

  virtual void EraseLog() = 0;
  // Received transfer arrays (element 0 unused, 1..n the record texts).
  virtual void StoreProgrammazione(std::vector<std::string>& dati) = 0;
  virtual void StoreProgCamEvents(std::vector<std::string>& dati) = 0;
  // Received files; a name that is not a plain file name is refused.
  virtual bool StoreVoiceMessage(const std::string& name, const std::string& bytes) = 0;
  virtual bool StoreFirmware(const std::string& name, const std::string& bytes) = 0;
  // The last command string sent to the unit ("50"), kept as received.
  virtual void StoreLastCommand(const std::string& command) = 0;
  virtual std::string LastCommand() = 0;
};

}  // namespace camrelay::unit
