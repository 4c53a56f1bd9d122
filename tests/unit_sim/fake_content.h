// Content held in memory, so that the session's tests see exactly what the
// unit was asked to serve and what it stored.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "../../tools/camrelay-unit/content.h"

namespace camrelay::unit::test {

class FakeContent : public Content {
 public:
  std::vector<std::string> programmazione{"AA{}0{}01{}"};
  std::vector<std::string> log{"AA{}0{}04{}"};
  std::vector<std::string> voice{"AA{}1{}05{}", "{}"};
  std::map<std::string, std::string> media;
  std::map<int, std::string> previews;
  std::string lastCommand;
  int erasures = 0;
  std::vector<std::vector<std::string>> storedProgrammazione;
  std::vector<std::vector<std::string>> storedProgCamEvents;
  std::map<std::string, std::string> voiceFiles;
  std::map<std::string, std::string> firmware;

  std::vector<std::string> Programmazione() override { return programmazione; }
  std::vector<std::string> Log() override { return log; }
  std::vector<std::string> CamEvents() override { return log; }
  std::vector<std::string> ProgCamEvents() override { return programmazione; }
  std::vector<std::string> VoiceMessages() override { return voice; }
  std::optional<std::string> MediaFile(const std::string& name) override {
    auto it = media.find(name);
    return it == media.end() ? std::nullopt : std::optional(it->second);
  }
  std::optional<std::string> PreviewImage(int camera) override {
    auto it = previews.find(camera);
    return it == previews.end() ? std::nullopt : std::optional(it->second);
  }
  int LogSize() override { return static_cast<int>(log.size()) - 1; }
  void EraseLog() override {
    ++erasures;
    log = {"AA{}0{}04{}"};
  }
  void StoreProgrammazione(std::vector<std::string>& dati) override { storedProgrammazione.push_back(dati); }
  void StoreProgCamEvents(std::vector<std::string>& dati) override { storedProgCamEvents.push_back(dati); }
  bool StoreVoiceMessage(const std::string& name, const std::string& bytes) override {
    voiceFiles[name] = bytes;
    return true;
  }
  bool StoreFirmware(const std::string& name, const std::string& bytes) override {
    firmware[name] = bytes;
    return true;
  }
  void StoreLastCommand(const std::string& command) override { lastCommand = command; }
  std::string LastCommand() override { return lastCommand; }
};

// n data elements "{}i{}L" CR LF body, after an opening.
inline std::vector<std::string> Elements(int n) {
  std::vector<std::string> dati{"AA{}" + std::to_string(n) + "{}01{}"};
  for (int i = 1; i <= n; ++i) {
    const std::string body = "{}Registro_eventi{}0{}" + std::to_string(i) + "{}3\r\n";
    dati.push_back("{}" + std::to_string(i) + "{}" + std::to_string(body.size()) + "\r\n" + body);
  }
  return dati;
}

}  // namespace camrelay::unit::test
