// export
#include "Commands.h"
#include "Document.h"

namespace
{

Answer exportAll(Session& session, const Given& /*given*/)
{
    // The lock keeps others from changing anything meanwhile, so the document shows one moment. A
    // query does not wait: when a change is at work, a warning says so.
    if (session.transaction.open(0) == PostfixTransaction::Busy)
        tell("warning: another change is at work, and the document may hold a part of it");
    const Hosting hosting = session.read(everything());
    session.transaction.drop();
    if (mayOthersReadAnswer())
        tell("warning: other users may read the file that this goes to, with all password hashes; "
             "\"umask 077\" before the command keeps it from them");

    Answer answer{documentOf(hosting), {}};
    if (!session.options.json)
        answer.lines = linesOfDocument(answer.result);
    return answer;
}

} // namespace

Object exportCommand()
{
    return {
        "export",
        "Write everything that is hosted, as one JSON document with all password hashes",
        {{"",
          "Write everything that is hosted, as one JSON document. It holds all password hashes: "
          "keep it safe",
          {},
          Nothing,
          "  umask 077\n"
          "  qvmailctl export > /root/hosting.json",
          exportAll}}};
}
