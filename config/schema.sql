-- The three tables of the "mysql" backend. Load them once into the database that Quorvel.conf names
-- (sql-accounts.sql makes it):
--
--     mariadb < sql-accounts.sql
--     mariadb qvmail < schema.sql
--
-- MariaDB 10.3 or MySQL 8.0.23 and later, for the invisible columns. The library inserts by position,
-- so the visible columns and their order must stay as they are. "id" is invisible to that, and gives
-- each table the primary key that replicated clusters need to delete rows (Galera copies InnoDB tables
-- only). Nothing may build on its numbers: clusters leave gaps.
--
-- Every text column has one collation, because a query compares columns of two tables; it ignores
-- letter case, as mail addresses do. It is named here because a server may default to another one.

-- One row for each hosted domain. "name" is not unique, so that creating a domain can be repeated
-- after a creation that stopped half-way.
CREATE TABLE virtual_domains (
  name VARCHAR(255) NOT NULL,
  id BIGINT UNSIGNED NOT NULL AUTO_INCREMENT INVISIBLE,
  PRIMARY KEY (id),
  KEY name (name)
) ENGINE=InnoDB DEFAULT CHARACTER SET utf8mb4 COLLATE utf8mb4_general_ci;

-- One row for each mailbox. "email" is unique: with two rows Dovecot refuses every login, and the sums
-- of quotas count twice. "quota" is in bytes, 0 for no limit; its key answers whether any mailbox is
-- without one.
CREATE TABLE virtual_users (
  email VARCHAR(320) NOT NULL,
  password VARCHAR(128) NOT NULL,
  quota BIGINT NOT NULL DEFAULT 0,
  id BIGINT UNSIGNED NOT NULL AUTO_INCREMENT INVISIBLE,
  PRIMARY KEY (id),
  UNIQUE KEY email (email),
  KEY quota (quota)
) ENGINE=InnoDB DEFAULT CHARACTER SET utf8mb4 COLLATE utf8mb4_general_ci;

-- One row for each address and one of its destinations: forwarders, the members of lists, the mailbox
-- itself, and "@domain" for a catch-all. Pairs are not unique: a list that names a member twice is
-- written by one statement, which would fail as a whole and leave the list empty.
CREATE TABLE virtual_aliases (
  source VARCHAR(320) NOT NULL,
  destination VARCHAR(320) NOT NULL,
  id BIGINT UNSIGNED NOT NULL AUTO_INCREMENT INVISIBLE,
  PRIMARY KEY (id),
  KEY source (source)
) ENGINE=InnoDB DEFAULT CHARACTER SET utf8mb4 COLLATE utf8mb4_general_ci;
