// Storing what the unit sends: record lines, as the upload payload writes
// them, appended to the tables they name.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "store/DataVideo.h"

namespace camrelay::store {

// Stores a downloaded programming: empties the six programming tables, then
// appends every record line of Dati[1..] to the table it names (the log,
// named in its lines, is added to, never emptied). Elements without CR LF
// wait for the next one; text after the last CR LF of an element is dropped.
// A bad field is left at its default and a bad record skipped, each reported
// as "SaveVideoSentrovaDB on line <step>: <description>", and the rest is
// stored. The whole store is one transaction: cut short, it leaves the
// previous content. Dati with nothing after element 0 changes nothing.
void SaveVideoSentrovaDB(std::vector<std::string>& Dati, DataVideo& db, DebugSink* Form);

// Appends the record lines of Dati[1..] to the tables they name, as
// SaveVideoSentrovaDB does, emptying nothing: for the event log and the
// camera events, which the reception leaves in the packet array. Reports as
// "AppendRecordLines on line <step>: ...". Returns the number of records
// stored.
int AppendRecordLines(const std::vector<std::string>& Dati, DataVideo& db, DebugSink* Form);

// Stores a repeated download of a table that only grows (the event log, the
// camera events): the unit sends all it holds each time, so the records up
// to where the download overlaps the end of `table` are held already and
// only those after are added. Records are compared field by field as the
// table holds them (the log's own counter aside), so identical events at
// different times are different records. Records for other tables are
// appended. Reports as AppendRecordLines does, under "AddNewRecords".
// Returns how many records of `table` were new.
int AddNewRecords(const std::vector<std::string>& Dati, DataVideo& db, std::string_view table, DebugSink* Form);

}  // namespace camrelay::store
