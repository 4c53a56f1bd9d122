#include "link_fixture.h"

#include <algorithm>

namespace camrelay::test {

LinkFixture::LinkFixture(int protocol, const std::string& code)
    : platform_(std::make_shared<FakePlatform>()), db_(std::make_shared<store::DataVideo>()) {
  db_->SetConnectionString("Provider=SQLite;Data Source=" + (dir_ / "VideoSentrova.db").string());
  form_ = std::make_unique<link::frmClient>(platform_, db_);
  auto& f = *form_;
  f.CambioStatoConnessione = [this](StatoConnessioneEnum s) { states.push_back(s); };
  f.CambioStatoDB = [this](StatoDBEnum s) { dbStates.push_back(s); };
  f.OnDebug = [this](const std::string& m) { debug.push_back(m); };
  f.ErroreConnessione = [this] { ++connectionErrors; };
  f.ErroreTimeOutConnessioneTCP = [this] { ++timeoutErrors; };
  f.Form_Load();
  f.IpAddressRemote = "127.0.0.1";
  f.RemoteAddrPort = 19201;
  f.LocalAddrPort = 14400;
  f.PwdCrypted = false;
  f.sStringaPassword = code;
  f.StringaConnDB(db_->ConnectionString());
  f.WskProtocol(protocol);
  f.Stato = cNoOperation;
  f.CurrDir(dir_.str());
}

LinkFixture::~LinkFixture() { form_->Form_Unload(); }

std::string Frame(const std::string& message) {
  return "LN{}" + std::to_string(message.size()) + "{}" + message;
}

std::string Unframe(const std::string& sent) {
  const auto sep = sent.rfind("LN{}", 0) == 0 ? sent.find("{}", 4) : std::string::npos;
  if (sep == std::string::npos || Frame(sent.substr(sep + 2)) != sent) return sent;
  return sent.substr(sep + 2);
}

void LinkFixture::unitSends(const std::string& message) {
  socket().deliver(socket().protocol() == 0 ? Frame(message) : message);
}

std::vector<std::string> LinkFixture::messages() const {
  std::vector<std::string> out;
  for (const auto& s : platform_->socket->sent) out.push_back(platform_->socket->protocol() == 0 ? Unframe(s) : s);
  return out;
}

void LinkFixture::clearRecords() {
  platform_->socket->sent.clear();
  states.clear();
  dbStates.clear();
  debug.clear();
}

int LinkFixture::debugLines(const std::string& text) const {
  return static_cast<int>(std::count_if(debug.begin(), debug.end(),
                                        [&](const std::string& line) { return line.find(text) != std::string::npos; }));
}

int LinkFixture::raised(int stato) const { return static_cast<int>(std::count(states.begin(), states.end(), stato)); }

}  // namespace camrelay::test
