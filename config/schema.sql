-- The three tables for accounts in a database (MailBackend "mysql"). Load them once into the database
-- that Quorvel.conf names (sql-accounts.sql makes it):
--
--     mariadb < sql-accounts.sql
--     mariadb qvmail < schema.sql
--
-- MariaDB 10.3 or MySQL 8.0.23 and later, for the invisible columns. The library inserts by
-- position, so the visible columns and their order must stay as they are. An insertion does not see
-- "id", which gives each table the primary key that replicated clusters need to delete rows (Galera
-- copies InnoDB tables only). Nothing may depend on its numbers: clusters leave gaps.
--
-- Every text column has the same collation, because a query compares columns of two tables. It
-- ignores letter case, as mail addresses do, and is named here because a server may have another
-- default.

-- One row for each hosted domain. "name" is not unique, so that the creation of a domain can be
-- repeated after one that stopped half-way.
CREATE TABLE virtual_domains (
  name VARCHAR(255) NOT NULL,
  id BIGINT UNSIGNED NOT NULL AUTO_INCREMENT INVISIBLE,
  PRIMARY KEY (id),
  KEY name (name)
) ENGINE=InnoDB DEFAULT CHARACTER SET utf8mb4 COLLATE utf8mb4_general_ci;

-- One row for each mailbox. "email" is unique: with two rows Dovecot refuses every login, and the
-- sums of quotas count twice. "quota" is in bytes, 0 means no limit; its key answers the question
-- whether any mailbox has no limit.
CREATE TABLE virtual_users (
  email VARCHAR(320) NOT NULL,
  password VARCHAR(128) NOT NULL,
  quota BIGINT NOT NULL DEFAULT 0,
  id BIGINT UNSIGNED NOT NULL AUTO_INCREMENT INVISIBLE,
  PRIMARY KEY (id),
  UNIQUE KEY email (email),
  KEY quota (quota)
) ENGINE=InnoDB DEFAULT CHARACTER SET utf8mb4 COLLATE utf8mb4_general_ci;

-- One row for each pair of an address and a destination: forwarders, the members of lists, the
-- mailbox itself, and "@domain" for a catch-all. Pairs are not unique: a list that names a member
-- twice is written by one statement, which a unique key would refuse as a whole, leaving the list
-- empty. The key on "destination" answers who forwards to an address, which qvmailctl asks before it
-- deletes a mailbox.
CREATE TABLE virtual_aliases (
  source VARCHAR(320) NOT NULL,
  destination VARCHAR(320) NOT NULL,
  id BIGINT UNSIGNED NOT NULL AUTO_INCREMENT INVISIBLE,
  PRIMARY KEY (id),
  KEY source (source),
  KEY destination (destination)
) ENGINE=InnoDB DEFAULT CHARACTER SET utf8mb4 COLLATE utf8mb4_general_ci;

-- MariaDB keeps these statistics, taken of the empty table, until somebody repeats "ANALYZE ... PERSISTENT", which
-- is better left alone. With them the optimizer (of 10.4 and later) takes the table for a small one and reads it
-- before virtual_users where a domain's lists are asked for; mariadb/server.cnf says what for. Look-ups by source
-- use its key as before. A table with rows, and one from a dump, gets them by this, on each node of a cluster:
--
--     replace into mysql.table_stats (db_name, table_name, cardinality) values ('qvmail', 'virtual_aliases', 0);
--     flush tables qvmail.virtual_aliases;
ANALYZE TABLE virtual_aliases /*M! PERSISTENT FOR COLUMNS () INDEXES () */;
