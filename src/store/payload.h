// Upload payloads built from tables: the unit's programming ("01") and its
// camera-event programming ("55").
//
// The payload is an array of texts: element 0 announces the transfer,
// "AA{}<n>{}<type>{}<code>", n being the number of data elements; element i
// (1..n) is "{}<i>{}<length>" CR LF and a body of whole record lines
// "{}<table>{}<N>{}<value 0>{}<type 0>...{}<value N>{}<type N>" CR LF, N
// being the table's field count less one. Every table starts a new element;
// an element is closed once a record line takes it past 3072 bytes.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "store/DataVideo.h"

namespace camrelay::store {

// Element 0 of a transfer to the unit: "AA{}<upper bound of Dati>{}<typeCode>{}<Code>".
void CompleteOpening(std::vector<std::string>& Dati, std::string_view typeCode, const std::string& Code);

// Builds the payload of the given transfer type from the rows of the named
// commands (table commands, or the log query), each table in its own
// elements. Opens a closed database as the data procedures do, reporting
// through Form under the name procedure; a failure is reported as
// "<procedure>: <description>" and the payload is returned as far as it was
// built (nothing but "AA" when the database cannot be opened). The simulated
// unit serves its own tables with it.
void EncodeTables(std::vector<std::string>& Dati, DataVideo& db, DebugSink* Form, std::string_view typeCode,
                  const std::string& Code, std::initializer_list<std::string_view> commands,
                  std::string_view procedure);

// The programming: Ingressi, MMS, NumTel, CanaliVideo, Alimentazione,
// ImpostazioniVideo, as transfer "01".
void LoadDataFromDB(std::vector<std::string>& Dati, DataVideo& db, DebugSink* Form, const std::string& Code);

// The camera-event programming: ProgCamEvents then Festivita, as transfer "55".
void LoadProgCamEventsFromDB(std::vector<std::string>& Dati, DataVideo& db, DebugSink* Form,
                             const std::string& Code);

}  // namespace camrelay::store
