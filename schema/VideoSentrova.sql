-- The standard tables of a VideoSentrova database.
--
-- The unit and the component address the programming tables by field
-- position, so the order of the columns is part of the protocol: add columns
-- at the end only. Each column's declared type gives the type number that
-- travels with its values (LONG 3, SHORT 2, SINGLE 4, DOUBLE 5, DATETIME 7,
-- BIT 11, TEXT(n) 202, LONGTEXT 203). Dates are held as ISO-8601 text,
-- Booleans as 0 and 1, text as UTF-8.
--
-- A Null received from the unit leaves a column at its default, so only NOT
-- NULL columns have one: any other column keeps the Null it was sent.

-- Alarm inputs, one row per input of the unit.
CREATE TABLE Ingressi (
  NumeroIngresso        LONG NOT NULL,
  Descrizione           TEXT(50),
  Abilitato             BIT NOT NULL DEFAULT 0,
  NormalmenteChiuso     BIT NOT NULL DEFAULT 0,
  RitardoSecondi        LONG,
  Telecamera            LONG,            -- camera recorded on alarm, 0 for none
  InvioMMS              BIT NOT NULL DEFAULT 0,
  ChiamataVocale        BIT NOT NULL DEFAULT 0,
  FoniaFileWav          TEXT(255),       -- voice message played on alarm
  Note                  LONGTEXT
);

-- How the unit sends its MMS messages.
CREATE TABLE MMS (
  Abilitato             BIT NOT NULL DEFAULT 0,
  Oggetto               TEXT(100),
  Testo                 LONGTEXT,
  NumeroImmagini        LONG,
  IntervalloSecondi     LONG,            -- between two snapshots of one MMS
  Risoluzione           TEXT(20),
  APN                   TEXT(100),
  ServerMMSC            TEXT(255),
  IndirizzoProxy        TEXT(64),
  PortaProxy            LONG
);

-- The telephone numbers the unit calls, in calling order.
CREATE TABLE NumTel (
  Posizione             LONG NOT NULL,
  Nominativo            TEXT(50),
  Numero                TEXT(30),
  ChiamataVocale        BIT NOT NULL DEFAULT 0,
  InvioSMS              BIT NOT NULL DEFAULT 0,
  InvioMMS              BIT NOT NULL DEFAULT 0,
  Tentativi             SHORT
);

-- The cameras, one row per video input.
CREATE TABLE CanaliVideo (
  Canale                LONG NOT NULL,
  Nome                  TEXT(50),
  Abilitato             BIT NOT NULL DEFAULT 0,
  Risoluzione           TEXT(20),
  Qualita               LONG,            -- JPEG quality, 1 to 100
  FotogrammiSecondo     SINGLE,
  Luminosita            LONG,
  Contrasto             LONG,
  SecondiPreAllarme     LONG,
  SecondiPostAllarme    LONG
);

-- Power-supply events: mains lost and restored, battery low, ...
CREATE TABLE Alimentazione (
  Evento                LONG NOT NULL,
  Descrizione           TEXT(50),
  Abilitato             BIT NOT NULL DEFAULT 0,
  SogliaVolt            DOUBLE,
  RitardoSecondi        LONG,
  InvioMMS              BIT NOT NULL DEFAULT 0,
  ChiamataVocale        BIT NOT NULL DEFAULT 0,
  FoniaFileWav          TEXT(255)
);

-- Recording settings of the unit, one row.
CREATE TABLE ImpostazioniVideo (
  FormatoVideo          TEXT(10),        -- PAL or NTSC
  Risoluzione           TEXT(20),
  Qualita               LONG,
  DurataFilmatoSecondi  LONG,
  RegistrazioneContinua BIT NOT NULL DEFAULT 0,
  OraInizioRegistrazione DATETIME,       -- a time of day alone
  OraFineRegistrazione  DATETIME,
  SovrimpressioneDataOra BIT NOT NULL DEFAULT 0,
  UltimaModifica        DATETIME
);

-- The unit's event log. Downloads only ever add to it; IdRegistro is
-- numbered here, never taken from the unit.
CREATE TABLE Registro_eventi (
  IdRegistro            INTEGER PRIMARY KEY AUTOINCREMENT,
  DataOra               DATETIME,
  CodiceEvento          LONG,
  Descrizione           TEXT(100),
  Ingresso              LONG,
  Telecamera            LONG,
  Utente                TEXT(50)
);
-- The log is read in time order.
CREATE INDEX Registro_eventi_DataOra ON Registro_eventi (DataOra);

-- Recordings the cameras made on events.
CREATE TABLE CamEvents (
  DataOra               DATETIME,
  Telecamera            LONG,
  TipoEvento            TEXT(50),
  NomeFile              TEXT(255),
  DurataSecondi         LONG,
  ShowInListEvents      BIT NOT NULL DEFAULT 1
);

-- When each camera records on events, per day of the week.
CREATE TABLE ProgCamEvents (
  Telecamera            LONG NOT NULL,
  GiornoSettimana       SHORT,           -- 1 Monday to 7 Sunday, 8 holidays
  OraInizio             DATETIME,
  OraFine               DATETIME,
  Registrazione         BIT NOT NULL DEFAULT 0,
  RilevazioneMovimento  BIT NOT NULL DEFAULT 0,
  SensibilitaMovimento  LONG,
  ApplicaFestivita      BIT NOT NULL DEFAULT 0,
  Descrizione           TEXT(50)
);

-- Holidays, on which ProgCamEvents rows for day 8 apply.
CREATE TABLE Festivita (
  Data                  DATETIME,
  Descrizione           TEXT(50),
  Ricorrente            BIT NOT NULL DEFAULT 0  -- same day every year
);
