// A session over content held in memory, fed one message at a time, so that
// the tests see exactly what the unit was asked to serve and what it stored.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "../../tools/camrelay-unit/content.h"
#include "../../tools/camrelay-unit/session.h"
#include "requests/crypt.h"

namespace camrelay::unit::test {

using Messages = std::vector<std::string>;

class FakeContent : public Content {
 public:
  std::vector<std::string> log{"AA{}0{}04{}"};
  std::map<std::string, std::string> media;
  std::vector<std::vector<std::string>> storedProgrammazione;
  std::vector<std::vector<std::string>> storedProgCamEvents;

  std::vector<std::string> Programmazione() override { return {"AA{}0{}01{}"}; }
  std::vector<std::string> Log() override { return log; }
  std::vector<std::string> CamEvents() override { return log; }
  std::vector<std::string> ProgCamEvents() override { return Programmazione(); }
  std::vector<std::string> VoiceMessages() override { return {"AA{}1{}05{}", "{}"}; }
  std::optional<std::string> MediaFile(const std::string& name) override {
    return media.contains(name) ? std::optional(media[name]) : std::nullopt;
  }
  std::optional<std::string> PreviewImage(int) override { return std::nullopt; }
  int LogSize() override { return static_cast<int>(log.size()) - 1; }
  void EraseLog() override { log = {"AA{}0{}04{}"}; }
  void StoreProgrammazione(std::vector<std::string>& dati) override { storedProgrammazione.push_back(dati); }
  void StoreProgCamEvents(std::vector<std::string>& dati) override { storedProgCamEvents.push_back(dati); }
  bool StoreVoiceMessage(const std::string&, const std::string&) override { return true; }
  bool StoreFirmware(const std::string&, const std::string&) override { return true; }
  void StoreLastCommand(const std::string&) override {}
  std::string LastCommand() override { return {}; }
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

class SessionTest : public ::testing::Test {
 protected:
  void Start(bool tcp) {
    faults_ = std::make_unique<Faults>(settings);
    session_ = std::make_unique<Session>(content, codes, *faults_, tcp, log_);
  }
  // What the unit sends back, delays and resets aside.
  Messages Send(const std::string& message) {
    Messages texts;
    for (const auto& out : session_->Receive(message))
      if (!out.reset) texts.push_back(out.message);
    return texts;
  }
  // The opening of a request with the installer code scrambled.
  static std::string Request(const std::string& tipo, int count = 0) {
    return "AA{}" + std::to_string(count) + "{}" + tipo + "{}" + requests::CryptData("123456");
  }

  FakeContent content;
  Codes codes{"123456", "654321"};
  FaultSettings settings;

 private:
  Log log_{Log::Quiet};
  std::unique_ptr<Faults> faults_;
  std::unique_ptr<Session> session_;
};

}  // namespace camrelay::unit::test
