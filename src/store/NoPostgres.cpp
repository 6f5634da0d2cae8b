// A build without a PostgreSQL client (the Windows one): a server address
// is refused with its reason, and the SQLite store works as ever.
#include "common/RuntimeError.h"
#include "store/SqlDatabase.h"

namespace mervasto {

std::unique_ptr<SqlDatabase> OpenPostgres(const std::string& /*uri: may hold a password*/) {
    throw RuntimeError(ErrorCode::FileIo,
                       "This build has no PostgreSQL client: name a SQLite file as the results store instead of a "
                       "postgresql:// address.");
}

}  // namespace mervasto
