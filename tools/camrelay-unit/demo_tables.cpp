// The demo's tables: the programming of a small house, four months of log
// drawn from a fixed seed, the camera events and their programming.
#include "demo_content.h"

#include <chrono>
#include <cstdio>
#include <cstdint>
#include <random>
#include <string>
#include <vector>


namespace camrelay::unit {

namespace {


Value Num(long long n) { return static_cast<std::int64_t>(n); }
Value Real(double x) { return x; }
Value Text(const char* text) { return std::string(text); }
Value Flag(bool on) { return static_cast<std::int64_t>(on ? 1 : 0); }
const Value kNull = std::monostate{};

Value When(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  return IsoDate(y, mo, d, h, mi, s);
}
// A time of day alone, held on the zero date.
Value TimeOfDay(int h, int mi) { return When(1899, 12, 30, h, mi); }

// A Null leaves the field at its default; the log's counter numbers itself.
void AddRows(Database& db, std::string_view table, const std::vector<Row>& rows) {
  const std::vector<std::string> columns = db.ColumnNames(table);
  for (const Row& row : rows) db.Insert(table, columns, row);
}

using namespace demo;

void Programming(Database& db) {
  // NumeroIngresso, Descrizione, Abilitato, NormalmenteChiuso, RitardoSecondi,
  // Telecamera, InvioMMS, ChiamataVocale, FoniaFileWav, Note
  AddRows(db, "Ingressi",
          {
              {Num(1), Text("Porta d'ingresso"), Flag(true), Flag(true), Num(30), Num(1), Flag(true), Flag(true),
               Text(kIntrusionWav), Text("Ritardo per l'uscita: 30 secondi")},
              {Num(2), Text("Ingresso cucina"), Flag(true), Flag(true), Num(0), Num(2), Flag(true), Flag(true),
               Text(kIntrusionWav), kNull},
              {Num(3), Text("Finestra soggiorno"), Flag(true), Flag(false), Num(0), Num(2), Flag(false),
               Flag(true), kNull, kNull},
              {Num(4), Text("Garage"), Flag(true), Flag(true), Num(15), Num(3), Flag(true), Flag(false), kNull,
               Text("Basculante con contatto magnetico")},
              {Num(5), Text("Volumetrico corridoio"), Flag(true), Flag(false), Num(0), Num(0), Flag(false),
               Flag(true), kNull, kNull},
              {Num(6), Text("Terrazzo lato città"), Flag(false), Flag(false), Num(0), Num(4), Flag(false),
               Flag(false), kNull, Text("Disattivato d'inverno")},
              {Num(7), Text("Cantina"), Flag(true), Flag(true), Num(0), Num(0), Flag(false), Flag(false), kNull,
               kNull},
              {Num(8), Text("Sirena antimanomissione"), Flag(true), Flag(true), Num(0), Num(0), Flag(true),
               Flag(true), Text(kIntrusionWav), kNull},
          });
  // Abilitato, Oggetto, Testo, NumeroImmagini, IntervalloSecondi,
  // Risoluzione, APN, ServerMMSC, IndirizzoProxy, PortaProxy
  AddRows(db, "MMS",
          {{Flag(true), Text("Allarme VideoSentrova"),
            Text("Attenzione: è scattato un allarme. Le immagini sono allegate."), Num(3), Num(2),
            Text("320x240"), Text("mms.operatore.it"), Text("http://mms.operatore.it/servlets/mms"),
            Text("10.0.0.10"), Num(80)}});
  // Posizione, Nominativo, Numero, ChiamataVocale, InvioSMS, InvioMMS, Tentativi
  AddRows(db, "NumTel",
          {
              {Num(1), Text("Mario Rossi"), Text("+393331234567"), Flag(true), Flag(true), Flag(true), Num(3)},
              {Num(2), Text("Niccolò Bianchi"), Text("+393479876543"), Flag(true), Flag(false), Flag(true),
               Num(2)},
              {Num(3), Text("Vigilanza Città Sicura"), Text("0212345678"), Flag(true), Flag(false), Flag(false),
               Num(5)},
          });
  // Canale, Nome, Abilitato, Risoluzione, Qualita, FotogrammiSecondo,
  // Luminosita, Contrasto, SecondiPreAllarme, SecondiPostAllarme
  AddRows(db, "CanaliVideo",
          {
              {Num(1), Text("Ingresso principale"), Flag(true), Text("640x480"), Num(80), Real(12.5), Num(50),
               Num(50), Num(5), Num(20)},
              {Num(2), Text("Cucina e soggiorno"), Flag(true), Text("640x480"), Num(75), Real(6.25), Num(55),
               Num(45), Num(5), Num(15)},
              {Num(3), Text("Garage"), Flag(true), Text("320x240"), Num(70), Real(5), Num(60), Num(50), Num(3),
               Num(10)},
              {Num(4), Text("Terrazzo lato città"), Flag(true), Text("320x240"), Num(70), Real(2.5), Num(50),
               Num(50), Num(0), Num(10)},
          });
  // Evento, Descrizione, Abilitato, SogliaVolt, RitardoSecondi, InvioMMS,
  // ChiamataVocale, FoniaFileWav
  AddRows(db, "Alimentazione",
          {
              {Num(1), Text("Mancanza rete 230V"), Flag(true), Real(190.5), Num(60), Flag(false), Flag(true),
               Text(kMainsWav)},
              {Num(2), Text("Ritorno rete 230V"), Flag(true), Real(207), Num(10), Flag(false), Flag(false),
               kNull},
              {Num(3), Text("Batteria bassa"), Flag(true), Real(11.5), Num(300), Flag(true), Flag(true),
               Text(kMainsWav)},
          });
  // FormatoVideo, Risoluzione, Qualita, DurataFilmatoSecondi,
  // RegistrazioneContinua, OraInizioRegistrazione, OraFineRegistrazione,
  // SovrimpressioneDataOra, UltimaModifica
  AddRows(db, "ImpostazioniVideo",
          {{Text("PAL"), Text("640x480"), Num(80), Num(30), Flag(false), TimeOfDay(7, 30), TimeOfDay(19, 45),
            Flag(true), When(2025, 5, 14, 16, 42, 10)}});
}

// The demo's clock: the log runs over the four months before this moment.
constexpr std::chrono::sys_days kLogEnd{std::chrono::year{2025} / 6 / 30};
constexpr int kLogEvents = 3000;

Value At(std::chrono::sys_seconds t) {
  using namespace std::chrono;
  const auto day = floor<days>(t);
  const year_month_day ymd{day};
  const hh_mm_ss hms{t - day};
  return When(static_cast<int>(ymd.year()), static_cast<int>(static_cast<unsigned>(ymd.month())),
              static_cast<int>(static_cast<unsigned>(ymd.day())), static_cast<int>(hms.hours().count()),
              static_cast<int>(hms.minutes().count()), static_cast<int>(hms.seconds().count()));
}

struct EventKind {
  int code;
  const char* text;
  bool input;  // names an input (and its camera)
  bool user;   // names who did it
};

constexpr EventKind kEvents[] = {
    {1, "Inserimento impianto", false, true},        {2, "Disinserimento impianto", false, true},
    {10, "Allarme ingresso", true, false},           {11, "Ripristino ingresso", true, false},
    {20, "Mancanza rete 230V", false, false},        {21, "Ritorno rete 230V", false, false},
    {22, "Batteria bassa", false, false},            {30, "Manomissione contenitore", false, false},
    {40, "Chiamata vocale effettuata", false, false}, {41, "MMS inviato con 3 immagini", false, false},
    {50, "Accesso installatore", false, true},        {60, "Test periodico", false, false},
};
// How often each kind occurs, in the order above: arming and disarming
// dominate a real log.
constexpr int kWeights[] = {30, 30, 6, 6, 2, 2, 1, 1, 4, 4, 2, 12};

void EventLog(Database& db) {
  std::mt19937 rng(20250630);
  std::discrete_distribution<int> kind(std::begin(kWeights), std::end(kWeights));
  const char* users[] = {"Mario Rossi", "Niccolò Bianchi", "Lucia Ferrè"};
  const int inputCamera[] = {0, 1, 2, 2, 3, 0, 4, 0, 0};
  // Events spaced so that kLogEvents of them fill the four months.
  auto t = std::chrono::sys_seconds{kLogEnd - std::chrono::days{122}};
  std::vector<Row> rows;
  for (int i = 0; i < kLogEvents; ++i) {
    t += std::chrono::seconds(600 + rng() % 5400);
    const EventKind& e = kEvents[kind(rng)];
    const int input = e.input ? 1 + static_cast<int>(rng() % 8) : 0;
    rows.push_back({kNull, At(t), Num(e.code), Text(e.text), input ? Num(input) : kNull,
                    input ? Num(inputCamera[input]) : kNull,
                    e.code == 50 ? Text("Installatore") : e.user ? Text(users[rng() % 3]) : kNull});
  }
  AddRows(db, "Registro_eventi", rows);
}

void CameraEvents(Database& db) {
  // DataOra, Telecamera, TipoEvento, NomeFile, DurataSecondi, ShowInListEvents
  std::vector<Row> rows;
  for (const Recording& r : kRecordings)
    rows.push_back({When(r.when.year, r.when.month, r.when.day, r.when.hour, r.when.minute, r.when.second), Num(r.camera), Text(r.kind), RecordingName(r),
                    r.clip ? Num(kClipFrames / kClipFps) : Num(0), Flag(true)});
  AddRows(db, "CamEvents", rows);

  // Telecamera, GiornoSettimana, OraInizio, OraFine, Registrazione,
  // RilevazioneMovimento, SensibilitaMovimento, ApplicaFestivita, Descrizione
  rows.clear();
  for (int camera = 1; camera <= kCameras; ++camera) {
    for (int day = 1; day <= 5; ++day)
      rows.push_back({Num(camera), Num(day), TimeOfDay(8, 0), TimeOfDay(19, 30), Flag(true), Flag(camera != 4),
                      Num(40 + 10 * camera), Flag(false), Text("Giorni feriali")});
    rows.push_back({Num(camera), Num(6), TimeOfDay(9, 0), TimeOfDay(13, 0), Flag(true), Flag(true), Num(60),
                    Flag(false), Text("Sabato mattina")});
    rows.push_back({Num(camera), Num(8), TimeOfDay(0, 0), TimeOfDay(23, 59), Flag(true), Flag(true), Num(70),
                    Flag(true), Text("Festività: sempre attiva")});
  }
  AddRows(db, "ProgCamEvents", rows);

  // Data, Descrizione, Ricorrente
  AddRows(db, "Festivita",
          {
              {When(2025, 1, 1), Text("Capodanno"), Flag(true)},
              {When(2025, 1, 6), Text("Epifania"), Flag(true)},
              {When(2025, 4, 21), Text("Lunedì dell'Angelo"), Flag(false)},
              {When(2025, 4, 25), Text("Festa della Liberazione"), Flag(true)},
              {When(2025, 5, 1), Text("Festa dei Lavoratori"), Flag(true)},
              {When(2025, 6, 2), Text("Festa della Repubblica"), Flag(true)},
              {When(2025, 8, 15), Text("Ferragosto"), Flag(true)},
              {When(2025, 11, 1), Text("Ognissanti"), Flag(true)},
              {When(2025, 12, 8), Text("Immacolata Concezione"), Flag(true)},
              {When(2025, 12, 25), Text("Natale"), Flag(true)},
              {When(2025, 12, 26), Text("Santo Stefano"), Flag(true)},
          });
}

}  // namespace

std::string demo::RecordingName(const Recording& r) {
  char stamp[32];
  std::snprintf(stamp, sizeof stamp, "%04d%02d%02d_%02d%02d%02d", r.when.year, r.when.month, r.when.day,
                r.when.hour, r.when.minute, r.when.second);
  return std::string(r.clip ? "clip" : "snap") + "_cam" + std::to_string(r.camera) + "_" + stamp +
         (r.clip ? ".avi" : ".jpg");
}

void FillDemoTables(Database& db) {
  Database::Transaction transaction(db);
  Programming(db);
  EventLog(db);
  CameraEvents(db);
  transaction.Commit();
}

}  // namespace camrelay::unit
