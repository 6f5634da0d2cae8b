#pragma once

#include "store/SqlDatabase.h"

// The tables of the results store and the steps that bring an older store up
// to them. SQLite and PostgreSQL get the same tables; only the spelling of an
// automatic id and SQLite's tables without a row id differ.
namespace mervasto {

inline constexpr int kStoreSchemaVersion = 1;

// Brings the store up to kStoreSchemaVersion in one transaction, so that two
// stations opening a new store at once make its tables once. A store of a
// later version than this program knows is refused (a FileIo RuntimeError).
void EnsureStoreSchema(SqlDatabase& db);

// The version the store holds (0 for one without tables).
int StoreSchemaVersion(SqlDatabase& db);

}  // namespace mervasto
