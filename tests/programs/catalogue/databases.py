# SPDX-License-Identifier: Apache-2.0
"""Databases."""

from inputs import sqlite_script, table
from program import Program

THOROUGH = ("defaults", "checks", "record", "snapshots", "events")

PROGRAMS = (
    Program("sqlite3", ("sqlite3",), files={"full.sql": lambda: sqlite_script(10000), "small.sql": lambda: sqlite_script(300)},
            alone=("sqlite3",), slice=THOROUGH, armhf=THOROUGH, emulated=True, work="""
sqlite3 -batch work.db <$SIZE.sql
"""),
    Program("postgresql", ("postgresql-15",), files={"table": lambda: table(5000)}, ignore=("data/*", "out"), work=r"""
bin=/usr/lib/postgresql/15/bin; export PGHOST=/tmp PGDATABASE=postgres
$bin/initdb -D data -A trust -E UTF8 --locale=C -N >out
$bin/pg_ctl -D data -w -l out -o '-k /tmp -F -c max_parallel_workers_per_gather=2 -c min_parallel_table_scan_size=0 -c parallel_setup_cost=0' start >out2
$bin/psql -qAt <<'S'
create table t(id int primary key, a text, b text, c numeric);
\copy t from table with csv
create index on t(a, b);
analyze;
select a, count(*), sum(c) from t group by a order by a;
begin; update t set c = c + 1 where id % 3 = 0; savepoint s; delete from t; rollback to s; commit;
select x.a, y.b, sum(x.c * y.c) from t x join t y on x.id = y.id + 7 group by 1, 2 order by 3 desc limit 5;
create function f(n int) returns int language plpgsql as $$ begin if n < 2 then return 1; end if; return n * f(n - 1); end $$;
select f(10), jsonb_agg(a order by id)->5, regexp_replace('abc', 'b(.)', '<\1>') from t;
select 1 / 0;
vacuum full t;
S
$bin/pg_dump -t t >dump; $bin/psql -qAt -c 'drop table t' -c 'select pg_sleep(0)'; grep -v '^SET' dump | $bin/psql -q -v ON_ERROR_STOP=1; $bin/psql -qAt -c 'select sum(c), max(id) from t'
$bin/pg_ctl -D data -w -m fast stop >out2; grep -c -E 'PANIC|terminated by signal' out || true
""", normalise=((r"-- Dumped [^\n]*|\\\\?(un)?restrict [^\n]*", ""),)),
    Program("mariadb", ("mariadb-server",), files={"table": lambda: table(3000)}, ignore=("data/*", "out*"), work=r"""
mkdir data tmp; set -- --no-defaults --datadir=/work/data --tmpdir=/work/tmp --socket=/tmp/s --skip-networking --innodb-buffer-pool-size=8M --innodb-log-file-size=8M --innodb-flush-method=fsync --pid-file=/tmp/pid --lc-messages-dir=/usr/share/mysql
mariadb-install-db --no-defaults --datadir=/work/data --auth-root-authentication-method=normal --basedir=/usr --innodb-buffer-pool-size=8M --innodb-log-file-size=8M >out 2>&1 || { cat out; exit 1; }
mariadbd "$@" >out 2>&1 & server=$!
m() { mariadb --no-defaults -u root -S /tmp/s --local-infile "$@"; }
await mariadb-admin --no-defaults -u root -S /tmp/s ping
m -e "create database d"; m d <<'S'
create table t(id int primary key, a varchar(40), b varchar(40), c decimal(10,2), key(a, b)) engine=innodb;
load data local infile '/work/table' into table t fields terminated by ',';
select a, count(*), sum(c) from t group by a order by a;
start transaction; update t set c = c + 1 where id % 3 = 0; delete from t; rollback;
create table u engine=aria as select * from t; alter table u add column (d json); update u set d = json_object('a', a);
select x.a, y.b, sum(x.c * y.c) s from t x join u y on x.id = y.id + 7 group by 1, 2 order by 3 desc limit 5;
select json_extract(d, '$.a'), regexp_replace('abc', 'b(.)', '<\\1>') from u where id = 7;
S
mariadb-dump --no-defaults -u root -S /tmp/s --skip-comments d >dump; m -e 'drop database d; create database d'; m d <dump; m d -e 'checksum table t'
mariadb-admin --no-defaults -u root -S /tmp/s shutdown; wait $server; echo ended: $?
"""),
    Program("redis", ("redis-server",), ignore=("dump.rdb", "appendonlydir/*", "out", "*.rdb"), work=r"""
redis-server --port 7000 --save '' --appendonly yes --dir /work --io-threads 2 >out & server=$!
c() { redis-cli -p 7000 "$@"; }
await redis-cli -p 7000 ping
c eval 'for i = 1, 3000 do redis.call("hset", "h" .. i % 50, i, string.rep("x", i % 300)); redis.call("zadd", "z", i * 7919 % 1009, i); redis.call("rpush", "l", i) end return #KEYS' 0
c zrange z 0 9 withscores; c hlen h7; c lrange l 5 9; c sort l limit 0 3 desc; c debug digest; redis-benchmark -p 7000 -q -n 2000 -c 20 -P 4 -t set,get,lpush,sadd >/dev/null
c bgsave; await sh -c 'redis-cli -p 7000 info persistence | grep -q rdb_bgsave_in_progress:0'; c bgrewriteaof; await sh -c 'redis-cli -p 7000 info persistence | grep -q aof_rewrite_in_progress:0'; c info persistence | grep status
c del z; c xadd s 1-1 a b; c xrange s - +; c setbit b 100000 1; c pfadd p 1 2 3; c pfcount p; c geoadd g 13.3 52.5 berlin; c object encoding l; c flushall async; c dbsize
c shutdown save || true; wait $server; echo ended: $?
""", normalise=((r"Background [^\n]*", "started"),)),
    Program("memcached", ("memcached",), work=r"""
memcached -l 127.0.0.1 -p 11211 -m 8 -t 3 & server=$!
cat >c.pl <<'P'
use IO::Socket::INET; my $s = IO::Socket::INET->new("127.0.0.1:11211") or exit 1; exit 0 if @ARGV;
for (1..3000) { my $v = "x" x ($_ % 900); print $s "set k$_ 0 0 ", length $v, "\r\n$v\r\n"; <$s> =~ /STORED/ or die } print $s "get k77 k99\r\n"; while (<$s>) { s/x+/x/; print; last if /END/ }
print $s "incr k1 1\r\n", "delete k2\r\n", "flush_all\r\n"; print scalar <$s> for 1..3;
P
await perl c.pl ping; perl c.pl; kill $server; wait $server || echo $?
"""),
)
