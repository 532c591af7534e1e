#include "PostfixManager.h"

// The argument order differs from the member order, and dovecotLDA is ignored; both belong to the
// signature that hosts were built against. ErrNo is left without a value: only operations set it.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
PostfixManager::PostfixManager(CQVTrackManager* TrackMgr, std::string /*dovecotLDA*/,
                               std::string mailAccountBackend, std::string mailSqlServerIP,
                               std::string mailSqlServerPort, std::string mailSqlUser,
                               std::string mailSqlUserPassword, std::string mailSqlDatabase)
    : TrackManager(TrackMgr)
{
    TrackManager->CQVModuleName("PostfixManager");
    m_mailAccountBackend = mailAccountBackend;
    m_mailSqlUser = mailSqlUser;
    m_mailSqlUserPassword = mailSqlUserPassword;
    m_mailSqlServerIP = mailSqlServerIP;
    m_mailSqlDatabase = mailSqlDatabase;
    m_mailSqlServerPort = mailSqlServerPort;
}

PostfixManager::~PostfixManager() = default;
