#include "frame/performed.hpp"

namespace orvo::details {

void takeStatements(OperationResult& result)
{
    result.warnings = lastWarnings();
    result.shortfalls = lastShortfalls();
    if (!result.image)
        result.failure = lastFailure().value_or(Failure{FailureKind::Internal, {}, "no reason is known"});
}

} // namespace orvo::details
