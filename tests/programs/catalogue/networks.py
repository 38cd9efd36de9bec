# SPDX-License-Identifier: Apache-2.0
"""Servers, and the programs that talk to them."""

from inputs import text
from program import Program

TEXT = {"text": lambda: text(400_000)}
PAGES = {"www": TEXT["text"]}

PROGRAMS = (
    Program("nginx", ("nginx-light", "curl"), files=TEXT, ignore=("tmp/*", "access", "error", "pid"), work=r"""
mkdir tmp site; cp text site/; echo hello >site/index.html
cat >nginx.conf <<'N'
worker_processes 2; pid /work/pid; error_log /work/error; daemon on;
events { worker_connections 64; }
http { access_log /work/access; gzip on; gzip_types *; gzip_min_length 1; client_body_temp_path /work/tmp/a; proxy_temp_path /work/tmp/b; fastcgi_temp_path /work/tmp/c; uwsgi_temp_path /work/tmp/d; scgi_temp_path /work/tmp/e;
  upstream self { server 127.0.0.1:8081; keepalive 4; } server { listen 8080; root /work/site; autoindex on; location /p/ { proxy_pass http://self/; } location ~ ^/r/(.*)$ { return 302 /$1; } } server { listen 8081; root /work/site; } }
N
nginx -e /work/error -c /work/nginx.conf -p /work
await curl -sf -o /dev/null http://localhost:8080/
for i in $(seq 15); do curl -sf --compressed http://localhost:8080/p/text | cmp - text; done; curl -s -r 100-220 http://localhost:8080/text; curl -sL http://localhost:8080/r/index.html; curl -s -o /dev/null -w '%{http_code}\n' http://localhost:8080/none
curl -sSfZ --parallel-max 8 $(for i in $(seq 30); do echo "-o /dev/null http://localhost:8080/text"; done) 2>/dev/null; nginx -e /work/error -c /work/nginx.conf -p /work -s reload 2>/dev/null; curl -sf http://localhost:8080/
nginx -e /work/error -c /work/nginx.conf -p /work -s quit; await test ! -e pid; grep -c -E 'signal [0-9]+|alert|emerg' error || true
"""),
    Program("lighttpd", ("lighttpd", "curl"), files=TEXT, ignore=("out",), work=r"""
mkdir site; cp text site/
cat >l.conf <<'L'
server.document-root = "/work/site"
server.port = 8080
server.modules = ("mod_access", "mod_setenv", "mod_rewrite")
setenv.add-response-header = ("X-A" => "b")
url.rewrite-once = ("^/x/(.*)$" => "/$1")
L
lighttpd -D -f l.conf >out 2>&1 & server=$!
await curl -sf -o /dev/null http://localhost:8080/text; for i in $(seq 20); do curl -sf http://localhost:8080/x/text | cmp - text; done; curl -si http://localhost:8080/none | head -n 1; kill -INT $server; wait $server || echo $?
"""),
    Program("haproxy", ("haproxy", "curl", "lighttpd"), ignore=("out",), files=TEXT, work=r"""
mkdir site; cp text site/; printf 'server.document-root="/work/site"\nserver.port=8081\n' >l.conf; lighttpd -D -f l.conf >out 2>&1 & web=$!
printf 'global\n nbthread 2\n maxconn 50\ndefaults\n mode http\n timeout client 9s\n timeout server 9s\n timeout connect 9s\nfrontend f\n bind :8080\n default_backend b\nbackend b\n http-request set-header X-A b\n server s 127.0.0.1:8081\n' >h.cfg
haproxy -f h.cfg -db >out 2>&1 & proxy=$!
await curl -sf -o /dev/null http://localhost:8080/text; for i in $(seq 20); do curl -sf http://localhost:8080/text | cmp - text; done; kill -USR1 $proxy; wait $proxy || echo $?; kill -INT $web; wait $web || echo $?
"""),
    Program("squid", ("squid", "curl", "lighttpd"), ignore=("out", "log*", "core*"), files=TEXT, work=r"""
mkdir site; cp text site/; printf 'server.document-root="/work/site"\nserver.port=8081\n' >l.conf; lighttpd -D -f l.conf >out 2>&1 & web=$!
printf 'http_port 3128\npid_filename /tmp/squid.pid\naccess_log none\ncache_log /work/logc\ncache_store_log none\nhttp_access allow all\nshutdown_lifetime 0 seconds\ncache_mem 8 MB\nmime_table /usr/share/squid/mime.conf\nicon_directory /usr/share/squid/icons\nerror_directory /usr/share/squid/errors/templates\nnetdb_filename none\npinger_enable off\nmax_filedescriptors 512\n' >s.conf
squid -N -f s.conf >out 2>&1 & proxy=$!
await curl -sf -o /dev/null -x localhost:3128 http://127.0.0.1:8081/text; for i in $(seq 20); do curl -sf -x localhost:3128 http://127.0.0.1:8081/text | cmp - text; done; kill -INT $proxy; wait $proxy || echo $?; kill -INT $web; wait $web || echo $?
"""),
    Program("curl", ("curl", "openssl", "python3.11"), files=TEXT, ignore=("out*", "*.pem"), work=r"""
python3.11 -m http.server -b 127.0.0.1 8000 >out2 2>&1 & other=$!
await curl -sf -o /dev/null http://localhost:8000/text
for i in 1 2 3 4 5 6; do curl -sf http://localhost:8000/text | cmp - text; done
curl -sf http://localhost:8000/none || echo none: $?; curl -s http://localhost:9/ || echo refused: $?; curl -sF a=b -F f=@text -o /dev/null -w '%{http_code}\n' http://localhost:8000/
curl -fZ --no-progress-meter -o a -o b file:///work/text http://localhost:8000/text; cmp a b; kill $other; wait $other || echo $?
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout key.pem -out cert.pem -days 9 -subj /CN=localhost -addext subjectAltName=DNS:localhost >out3 2>&1
openssl s_server -accept 8443 -cert cert.pem -key key.pem -WWW -quiet >out3 2>&1 & other=$!
await curl -sf --cacert cert.pem -o /dev/null https://localhost:8443/text; for i in 1 2 3; do curl -sf --cacert cert.pem https://localhost:8443/text | cmp - text; done; curl -s https://localhost:8443/text || echo stranger: $?
kill $other; wait $other || echo $?
"""),
    Program("curl-files", ("curl",), files=TEXT, alone=("curl",), emulated=True, work=r"""
curl -fZ --no-progress-meter -o a -o b -o c file://$PWD/text file://$PWD/text file://$PWD/text; cmp a b; curl -s -r 1000-1999 file://$PWD/text | md5sum
curl -s file://$PWD/none || echo none: $?; curl -s -T text file://$PWD/put; cmp text put; curl -s http://127.0.0.1:9/ || echo refused: $?; curl -s none://a/ || echo wrong: $?
"""),
    Program("wget", ("wget", "python3.11"), files=TEXT, ignore=("out2",), work=r"""
mkdir site; cp text site/; printf '<a href="text">t</a><a href="b.html">b</a>' >site/index.html; echo b >site/b.html; (cd site; exec python3.11 -m http.server -b 127.0.0.1 8000 >../out2 2>&1) & server=$!
await wget -qO /dev/null http://localhost:8000/text; wget -qr -np -nH -P got http://localhost:8000/; diff -r site got -x '*.log' -x robots.txt && echo same; wget -qO- http://localhost:8000/none || echo none: $?; kill $server; wait || true
"""),
    Program("openssh", ("openssh-server", "openssh-client"), ignore=("key*", "host*", ".ssh/*", "out", "pid"), files=TEXT, work=r"""
ssh-keygen -q -t ed25519 -N '' -f key; ssh-keygen -q -t ecdsa -N '' -f host; ssh-keygen -q -t rsa -b 1024 -N secret -f keyr; ssh-keygen -p -P secret -N '' -f keyr >/dev/null; ssh-keygen -y -f keyr >keyr.pub; ssh-keygen -l -f keyr.pub | cut -c1-4
ssh-keygen -q -s host -I id -n worker -V always:forever key.pub; ssh-keygen -L -f key-cert.pub | sed -n '4,8p' | grep -v -E 'SHA256|Serial' || true
mkdir -p .ssh; cat key.pub >.ssh/authorized_keys; printf 'Port 2222\nHostKey /work/host\nPidFile /work/pid\nStrictModes no\nUsePAM no\nPasswordAuthentication no\nSubsystem sftp /usr/lib/openssh/sftp-server\n' >sshd.conf
/usr/sbin/sshd -D -f sshd.conf -E out & server=$!
printf 'StrictHostKeyChecking no\nUserKnownHostsFile /dev/null\nIdentityFile /work/key\nLogLevel ERROR\nPort 2222\n' >ssh.conf
await test -e pid; ssh -F ssh.conf localhost 'echo in; cat; exit 3' <text | md5sum; ssh -F ssh.conf localhost exit 3 || echo $?; scp -q -F ssh.conf text localhost:/work/copied; cmp text copied; printf 'ls -1 text\nget text got\n' | sftp -q -F ssh.conf -b - localhost; kill $server; wait || true
"""),
    Program("chrony", ("chrony",), ignore=("out", "pid"), work=r"""
printf 'local stratum 10\nallow\nport 1230\ncmdport 0\nbindcmdaddress /\npidfile /work/pid\nuser worker\n' >c.conf; chronyd -U -F 1 -x -d -f c.conf >out 2>&1 & server=$!
await grep -q 'Loaded seccomp filter' out; sed 's/^[^ ]* //' out | tail -n 1; kill $server; wait $server || echo $?
"""),
    Program("bind", ("bind9", "bind9-dnsutils"), ignore=("out", "K*", "*.signed", "dsset*", "*.jnl"), work=r"""
{ printf '$TTL 300\n@ IN SOA ns.t. a.t. 1 60 60 60 60\n@ IN NS ns.t.\nns.t. IN A 127.0.0.1\n'; for i in $(seq 300); do echo "h$i IN A 10.0.$((i / 256)).$((i % 256))"; done; } >zone
printf 'options { directory "/work"; listen-on port 5300 { 127.0.0.1; }; listen-on-v6 { none; }; pid-file "/tmp/named.pid"; session-keyfile "/tmp/k"; recursion no; allow-query { any; }; };\ncontrols {};\nzone "t" { type master; file "/work/zone"; };\n' >named.conf
named-checkconf named.conf; named-checkzone t zone; named -g -c named.conf -n 2 >out 2>&1 & server=$!
await dig +short +time=1 +tries=1 -p 5300 @127.0.0.1 h1.t; for i in $(seq 1 17 300); do dig +short -p 5300 @127.0.0.1 h$i.t; done; dig -p 5300 @127.0.0.1 axfr t | wc -l; kill $server; wait $server || echo $?
"""),
    Program("mosquitto", ("mosquitto", "mosquitto-clients"), ignore=("out",), work=r"""
printf 'listener 1883 127.0.0.1\nallow_anonymous true\npersistence true\npersistence_location /tmp/\n' >m.conf; mosquitto -c m.conf >out 2>&1 & server=$!
await mosquitto_pub -h 127.0.0.1 -t ready -m yes; mosquitto_pub -h 127.0.0.1 -r -t kept/a -m one; mosquitto_sub -h 127.0.0.1 -t 'kept/#' -C 1 -v
mosquitto_sub -h 127.0.0.1 -q 2 -t 'many/+' -C 300 -i s >got & sub=$!; await grep -q 'as s ' out; await grep -q 'eceived SUBSCRIBE from s\|as s ' out
await sh -c 'mosquitto_pub -h 127.0.0.1 -q 1 -r -t many/z -m start; seq 300 | mosquitto_pub -h 127.0.0.1 -q 2 -t many/n -l; [ -s got ]'; wait $sub; grep -c . got; kill $server; wait $server || echo $?
""" ),
    Program("tor", ("tor", "perl"), ignore=("data/*", "hidden/*", "out"), work=r"""
mkdir -m 700 data hidden; tor --DataDirectory data --list-fingerprint --ORPort 9001 --Nickname a --quiet >out 2>&1 || echo $?; test -s data/fingerprint && echo made; tor --hash-password x | cut -c1-3; tor --list-torrc-options | sort | md5sum
printf 'DataDirectory /work/data\nDisableNetwork 1\nSocksPort 0\nControlPort 9051\nHiddenServiceDir /work/hidden\nHiddenServicePort 80 127.0.0.1:8080\nLog notice file /work/out\n' >torrc
cat >c.pl <<'P'
use IO::Socket::INET; my $s = IO::Socket::INET->new("127.0.0.1:9051") or exit 1; exit 0 if @ARGV;
print $s "$_\r\n" for "AUTHENTICATE", "GETINFO config/names", "GETCONF HiddenServiceOptions", "GETINFO status/circuit-established", "SETCONF MaxCircuitDirtiness=77", "GETCONF MaxCircuitDirtiness", "GETINFO events/names", "QUIT"; print while <$s>;
P
tor -f torrc --verify-config --quiet && echo valid; tor -f torrc --quiet & server=$!
await perl c.pl ping; perl c.pl; cut -c57- hidden/hostname; kill -INT $server; wait $server || echo $?
"""),
)
