#include <gtest/gtest.h>

#include "store/download.h"
#include "store/dump.h"
#include "store/payload.h"
#include "store_fixture.h"

namespace camrelay::test {
namespace {

void FillProgramming(store::DataVideo& db) {
  store::Exec(db.Handle(), R"sql(
    WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 100000)
    INSERT INTO Ingressi SELECT i, 'Ingresso ' || i || ' – Città', i % 2, (i / 2) % 2,
      CASE WHEN i % 7 = 0 THEN NULL ELSE i % 60 END, i % 4, 0, 1,
      CASE WHEN i % 3 = 0 THEN NULL ELSE 'msg' || (i % 10) || '.wav' END,
      CASE WHEN i % 5 = 0 THEN '' ELSE NULL END FROM n;
    INSERT INTO MMS VALUES (1, 'Allarme è scattato', replace(hex(zeroblob(2500)), '00', 'zz'), 3, 2, '640x480', 'internet.it',
      'http://mms.example.it/servlets/mms', NULL, NULL);
    INSERT INTO NumTel VALUES (1, 'Niccolò Rossi', '+39 333 1234567', 1, 0, 1, 3),
      (2, NULL, '', 0, 0, 0, NULL);
    INSERT INTO CanaliVideo VALUES (1, 'Cancello «nord»', 1, '352x288', 75, 12.5, 50, -3, 5, 10),
      (2, NULL, 0, NULL, NULL, NULL, NULL, NULL, NULL, NULL);
    INSERT INTO Alimentazione VALUES (1, 'Mancanza rete', 1, 0.1 + 0.2, 30, 1, 1, 'rete.wav'),
      (2, 'Batteria bassa', 0, 11.8, NULL, 0, 0, NULL);
    INSERT INTO ImpostazioniVideo VALUES ('PAL', '704x576', 80, 30, 1, '1899-12-30 22:00:00', '1899-12-30',
      0, '2024-03-05 14:05:09'), ('NTSC', NULL, NULL, NULL, 0, NULL, NULL, 1, '2024-03-05');
  )sql");
}

TEST(RoundTrip, ProgrammingSentAndStoredComesOutTheSame) {
  TempDir dir;
  RecordingSink form;
  store::DataVideo a, b;
  a.SetConnectionString(SqliteConnection(dir / "a.db"));
  b.SetConnectionString(SqliteConnection(dir / "b.db"));
  a.Open();
  b.Open();
  FillProgramming(a);
  store::Exec(b.Handle(), "INSERT INTO Ingressi (NumeroIngresso) VALUES (-1); INSERT INTO MMS (Oggetto) VALUES ('old')");

  std::vector<std::string> payload;
  store::LoadDataFromDB(payload, a, &form, "C");
  std::vector<std::string> received = Bodies(payload);
  store::SaveVideoSentrovaDB(received, b, &form);

  EXPECT_TRUE(form.lines.empty()) << form.lines.front();
  for (const auto& programming : store::kProgrammingTables) {
    std::string table(programming.Table);
    store::TableDump sent = store::DumpTable(a, table), stored = store::DumpTable(b, table);
    EXPECT_EQ(stored.columns, sent.columns) << table;
    ASSERT_EQ(stored.rows.size(), sent.rows.size()) << table;
    for (std::size_t r = 0; r < sent.rows.size(); ++r) ASSERT_EQ(stored.rows[r], sent.rows[r]) << table << " row " << r;
  }
  EXPECT_EQ(store::DumpTable(b, "Ingressi").rows.size(), 100000u);
}

}  // namespace
}  // namespace camrelay::test
