-- The database for the accounts (MailBackend "mysql"), and who may use it. Put your own passwords
-- here, in Quorvel.conf (qvmail), and in sql-*.cf of Postfix and sql.conf of Dovecot (qvmailread).
-- When the database runs on another machine, put the address of the mail server in place of
-- 127.0.0.1.

CREATE DATABASE qvmail DEFAULT CHARACTER SET utf8mb4 COLLATE utf8mb4_general_ci;

-- The panel and qvmailctl.
CREATE USER qvmail@'127.0.0.1' IDENTIFIED BY 'secret';
GRANT SELECT, INSERT, UPDATE, DELETE ON qvmail.* TO qvmail@'127.0.0.1';

-- Postfix and Dovecot.
CREATE USER qvmailread@'127.0.0.1' IDENTIFIED BY 'secret';
GRANT SELECT ON qvmail.* TO qvmailread@'127.0.0.1';
