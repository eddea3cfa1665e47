// What a directory file holds. A change of these tables needs a new version number.

#ifndef NIMBREL_EMBEDDED_DIRECTORY_SCHEMA_H_
#define NIMBREL_EMBEDDED_DIRECTORY_SCHEMA_H_

#include "database.h"

namespace nimbrel::embedded {

inline constexpr FileFormat kDirectoryFormat = {"embedded directory", 0x4e444952, 1, R"sql(
CREATE TABLE domains (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    dns_name TEXT NOT NULL UNIQUE COLLATE NOCASE,
    netbios_name TEXT NOT NULL UNIQUE COLLATE NOCASE,
    sid TEXT NOT NULL UNIQUE
) STRICT;
CREATE TABLE units (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    domain_id INTEGER NOT NULL REFERENCES domains (id) ON DELETE CASCADE,
    parent_id INTEGER REFERENCES units (id) ON DELETE CASCADE,
    name TEXT NOT NULL COLLATE NOCASE
) STRICT;
CREATE UNIQUE INDEX unit_names ON units (domain_id, ifnull(parent_id, 0), name);
CREATE INDEX unit_parents ON units (parent_id);
CREATE TABLE users (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    domain_id INTEGER NOT NULL REFERENCES domains (id) ON DELETE CASCADE,
    name TEXT NOT NULL COLLATE NOCASE,
    password_hash TEXT NOT NULL,
    disabled INTEGER NOT NULL,
    locked INTEGER NOT NULL,
    expired INTEGER NOT NULL,
    password_expired INTEGER NOT NULL,
    must_change_password INTEGER NOT NULL,
    may_join INTEGER NOT NULL,
    UNIQUE (domain_id, name)
) STRICT;
CREATE TABLE delegations (
    user_id INTEGER NOT NULL REFERENCES users (id) ON DELETE CASCADE,
    unit_id INTEGER NOT NULL REFERENCES units (id) ON DELETE CASCADE,
    PRIMARY KEY (user_id, unit_id)
) STRICT, WITHOUT ROWID;
CREATE INDEX delegated_units ON delegations (unit_id);
CREATE TABLE computers (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    domain_id INTEGER NOT NULL REFERENCES domains (id) ON DELETE CASCADE,
    name TEXT NOT NULL COLLATE NOCASE,
    unit_id INTEGER REFERENCES units (id),
    secret_hash TEXT NOT NULL,
    enabled INTEGER NOT NULL,
    pre_staged INTEGER NOT NULL,
    key_version INTEGER NOT NULL,
    UNIQUE (domain_id, name)
) STRICT;
CREATE INDEX computer_units ON computers (unit_id);
CREATE TABLE trusts (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    domain_id INTEGER NOT NULL REFERENCES domains (id) ON DELETE CASCADE,
    partner_dns_name TEXT NOT NULL COLLATE NOCASE,
    partner_netbios_name TEXT NOT NULL COLLATE NOCASE,
    direction INTEGER NOT NULL,
    relationship INTEGER NOT NULL,
    UNIQUE (domain_id, partner_dns_name),
    UNIQUE (domain_id, partner_netbios_name)
) STRICT;
CREATE TABLE controllers (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    domain_id INTEGER NOT NULL REFERENCES domains (id) ON DELETE CASCADE,
    name TEXT NOT NULL COLLATE NOCASE,
    priority INTEGER NOT NULL,
    reachable INTEGER NOT NULL,
    UNIQUE (domain_id, name)
) STRICT;
CREATE TABLE rehearsals (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    operation TEXT NOT NULL UNIQUE,
    delay_milliseconds INTEGER NOT NULL,
    status INTEGER,
    value INTEGER,
    remaining INTEGER
) STRICT;
)sql"};

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_DIRECTORY_SCHEMA_H_
