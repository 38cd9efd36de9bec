# SPDX-License-Identifier: Apache-2.0
"""Languages that are interpreted, or compiled as they run."""

from inputs import table
from program import Program

CHECK = ("defaults",)
THOROUGH = ("defaults", "checks", "record", "snapshots", "events")
TIMES = ((r"in \d+\.\d+s", "in T"),)
PYTHON = {"PYTHONDONTWRITEBYTECODE": "1", "PYTHONHASHSEED": "0"}

PROGRAMS = (
    Program("python", ("python3.11", "libpython3.11-testsuite"), environment=PYTHON, alone=("python3.11",), normalise=TIMES,
            slice=(*THOROUGH, "ends"), armhf=THOROUGH, emulated=True, work="""
export PYTHONHOME=$TREE/usr
if [ $SIZE = small ]; then tests="bisect thread"; else
  export PYTHONMALLOC=malloc  # every object a block of its own
  tests="list dict collections csv array thread configparser"
  [ -n "$TREE" ] || tests="$tests ordered_dict deque re"
fi
python3.11 -m unittest -b $(printf 'test.test_%s ' $tests)
"""),
    Program("python-processes", ("python3.11",), environment=PYTHON, work=r"""
cat >work.py <<'P'
import concurrent.futures, json, multiprocessing, queue, sqlite3, subprocess, threading
def work(n): return sum(len(json.dumps({str(i): [i] * (i % 7)})) for i in range(n))
def fill(q):
    for i in range(500): q.put("x" * i)
if __name__ == "__main__":
    for kind in ("fork", "spawn", "forkserver"):
        with multiprocessing.get_context(kind).Pool(3) as pool: print(kind, pool.map(work, range(0, 900, 100)))
    with concurrent.futures.ThreadPoolExecutor(6) as pool: print(list(pool.map(work, range(0, 900, 100))))
    q = queue.Queue(10); threads = [threading.Thread(target=fill, args=(q,)) for _ in range(3)]
    for one in threads: one.start()
    print(sum(len(q.get()) for _ in range(1500)))
    for one in threads: one.join()
    busy = [threading.Thread(target=work, args=(3000,)) for _ in range(3)]
    for one in busy: one.start()
    print([subprocess.run(["echo", str(i)], capture_output=True).stdout for i in range(5)])
    for one in busy: one.join()
P
python3.11 work.py
"""),
    Program("perl", ("perl",), files={"table": lambda: table(5000)}, environment={"PERL_HASH_SEED": "0"}, alone=("perl",),
            emulated=True, work=r"""
export PERL5LIB=$(echo $TREE/usr/lib/*/perl-base $TREE/usr/lib/*/perl/5.* $TREE/usr/share/perl/5.* | tr ' ' :)
perl -F, -lane '$n{$F[1]}{$F[2]} += $F[3]; END { for $a (sort keys %n) { printf "%s %s\n", $a, join " ", map { sprintf "%.2f", $n{$a}{$_} } sort keys %{$n{$a}} } }' table
perl -MPOSIX -MList::Util=reduce -MData::Dumper -MStorable=dclone -e '$Data::Dumper::Sortkeys = 1; my @t = map { { n => $_, s => "x" x $_ } } 1..300; my $c = dclone(\@t);
  print Dumper($c->[5]), (reduce { $a * 3 + $b & 0xffff } map { length $_->{s} } @$c), "\n"; my $s = join ",", 1..1500; 1 while $s =~ s/(\d)(\d{3})(?!\d)/$1.$2/; print length $s, "\n";
  local $SIG{ALRM} = sub { die "rung\n" }; eval { alarm 1; 1 while 1 }; print $@; eval { die { code => 7 } }; print $@->{code}, "\n"; sub f { my $n = shift; $n ? 1 + f($n - 1) : 0 } no warnings; print f(5000), "\n"'
perl -Mthreads -e 'print join(" ", map { $_->join } map { my $k = $_; threads->create(sub { my %h = map { $_ => $k } 1..2000; scalar keys %h }) } 1..4), "\n"'
"""),
    Program("lua", ("lua5.4",), alone=("lua5.4",), slice=CHECK, emulated=True, work=r"""
cat >a.lua <<'L'
local t = {} for i = 1, 20000 do t[i] = string.format("%d:%s", i, string.rep("a", i % 50)) end
table.sort(t) print(#table.concat(t), t[77], select("#", table.unpack(t, 1, 200)))
local co = coroutine.wrap(function() for w in ("one two three"):gmatch("%a+") do coroutine.yield(w) end end) print(co(), co(), co())
print(pcall(error, {code = 2}), pcall(function() local x = nil; return x.y end)) setmetatable({}, {__gc = function() print("gone") end}) collectgarbage()
print(#string.pack("i4s2d", 7, "abc", 1.5), utf8.char(228, 8364), math.type(2^53), load("return 1 +") == nil)
L
lua5.4 a.lua; luac_missing=1; echo 'error("x")' | lua5.4 - || echo failed: $?
""", normalise=((r"table: 0x[0-9a-f]+", "table"),)),
    Program("node", ("nodejs",), work=r"""
cat >a.js <<'J'
const { Worker, isMainThread, parentPort } = require('worker_threads'), crypto = require('crypto'), zlib = require('zlib'), http = require('http'), fs = require('fs');
if (!isMainThread) { let m = new Map(); for (let i = 0; i < 50000; i++) m.set('k' + i, { i }); parentPort.postMessage(m.size); } else {
  const all = []; for (let i = 0; i < 3; i++) all.push(new Promise(r => new Worker(__filename).on('message', r)));
  Promise.all(all).then(async sizes => { console.log(sizes); let b = Buffer.from('abc'.repeat(100000)); const z = zlib.gzipSync(b); console.log(zlib.gunzipSync(z).equals(b), crypto.createHash('sha256').update(b).digest('hex'));
    console.log(crypto.pbkdf2Sync('a', 'b', 1000, 16, 'sha1').toString('hex')); let t = []; for (let i = 0; i < 300000; i++) t.push({ a: i, b: 'x' + i }); console.log(t.filter(o => o.b.endsWith('7')).map(o => o.a).reduce((a, b) => a + b, 0));
    const s = http.createServer((q, r) => { let n = 0; q.on('data', d => n += d.length); q.on('end', () => r.end('got ' + n)); }); await new Promise(r => s.listen(8080, r));
    for (let i = 0; i < 20; i++) await new Promise(r => { const q = http.request({ port: 8080, method: 'POST', agent: false }, a => { let x = ''; a.on('data', d => x += d); a.on('end', () => { if (i == 19) console.log(x); r(); }); }); q.end(b); }); s.close(); fs.writeFileSync('out', JSON.stringify(t.slice(0, 50))); }); }
J
node a.js
"""),
    Program("ruby", ("ruby3.1",), alone=("ruby3.1",), emulated=True, environment={"RUBYOPT": "--disable-gems"}, work=r"""
ruby3.1 -I $TREE/usr/lib/ruby/3.1.0 -e 'h = Hash.new(0); 30000.times { |i| h["k#{i * 7919 % 503}"] += i }; puts h.size, h.sort.first(3).inspect; puts (1..200).inject(:*).to_s.size
  t = 4.times.map { |k| Thread.new { (1..3000).map { |i| "#{i}" * k }.join.size } }; p t.map(&:value); f = Fiber.new { 3.times { |i| Fiber.yield i }; :end }; p 4.times.map { f.resume }
  p "abcabc".gsub(/b(.)/) { $1.upcase }, [3, 1, 2].sort_by { -_1 }; begin; raise ArgumentError, "x"; rescue => e; p e; end; GC.start; p ObjectSpace.count_objects.key?(:TOTAL); exit 3' || echo $?
"""),
    Program("php", ("php8.2-cli", "php8.2-mbstring", "php8.2-xml"), ignore=("a.phar",), work=r"""
php8.2 -n -r '$a = []; for ($i = 0; $i < 40000; $i++) $a["k" . ($i * 7919 % 1009)][] = str_repeat("x", $i % 30); ksort($a); echo count($a), " ", strlen(serialize($a)), "\n"; echo md5(json_encode(array_slice($a, 0, 20))), "\n";
  function g() { for ($i = 0; $i < 3; $i++) yield $i => $i ** 2; } foreach (g() as $k => $v) echo "$k=$v "; echo preg_replace_callback("/b(.)/", fn($m) => strtoupper($m[1]), "abcabc"), "\n"; try { throw new Exception("x"); } catch (Exception $e) { echo $e->getMessage(), "\n"; }
  class A { function __destruct() { echo "gone\n"; } } $x = new A; $x->me = $x; unset($x); gc_collect_cycles(); echo intdiv(7, 2), "\n"; exit(4);' 2>/dev/null || echo $?
php8.2 -n -d phar.readonly=0 $(for e in ctype iconv fileinfo tokenizer phar posix sockets exif gettext; do echo "-d extension=$e"; done) -r '
  for ($i = 0; $i < 300; $i++) $n = strlen(iconv("UTF-8", "UTF-16", str_repeat("\u{e4}x", $i))); echo $n, " ", ctype_alpha("abc"), " ", count(token_get_all("<?php function f(\$a) { return \$a + 1; }")), "\n";
  $f = new finfo(FILEINFO_MIME); echo $f->buffer("%PDF-1.4 x"), " ", $f->file("/usr/bin/php8.2"), "\n"; $p = new Phar("a.phar"); for ($i = 0; $i < 50; $i++) $p["f$i"] = str_repeat("x", $i * 99); unset($p); echo strlen(file_get_contents("phar://a.phar/f49")), "\n";
  socket_create_pair(AF_UNIX, SOCK_STREAM, 0, $s); socket_write($s[0], "hello"); echo socket_read($s[1], 9), " ", posix_getpwuid(posix_getuid())["name"], "\n";'
# Opened with RTLD_DEEPBIND; blocks of libxml2 go back and forth.
php8.2 -n -d extension=dom -d extension=simplexml -d extension=mbstring -r '$d = new DOMDocument(); $d->loadXML("<r>" . str_repeat("<a b=\"c\">text</a>", 500) . "</r>");
  echo (new DOMXPath($d))->query("//a")->length, " ", strlen($d->saveXML()), " ", md5($d->C14N()), "\n"; foreach (simplexml_import_dom($d)->a as $a) $t[] = mb_strtoupper("ü$a"); echo md5(implode($t)), "\n"; @$d->loadXML("<r") || print("broken\n");'
"""),
    Program("luajit", ("luajit",), alone=("luajit",), work=r"""
luajit -e 'local t = {} for i = 1, 40000 do t[i] = ("%d:%s"):format(i, ("a"):rep(i % 50)) end table.sort(t) print(#table.concat(t), t[77])
  local ffi = require("ffi") ffi.cdef[[void* malloc(size_t); void free(void*); typedef struct { int a, b; } pair;]] local n = 0
  for i = 1, 20000 do local p = ffi.C.malloc(i % 900 + 1); ffi.fill(p, i % 900 + 1, 7); ffi.C.free(p); n = n + ffi.new("pair", i, 2).a end print(n) collectgarbage() print(jit.status())'
"""),
    Program("sbcl", ("sbcl",), work=r"""
cat >a.lisp <<'L'
(defun f (n) (if (< n 2) 1 (* n (f (- n 1))))) (print (f 200))
(let ((h (make-hash-table :test 'equal))) (dotimes (i 30000) (incf (gethash (format nil "k~d" (mod (* i 7919) 503)) h 0) i)) (print (hash-table-count h)) (print (gethash "k7" h)))
(handler-case (error "oops") (error (e) (format t "~%~a" e))) (dotimes (i 30) (make-array 200000)) (sb-ext:gc :full t)
(print (funcall (compile nil '(lambda (x) (loop for i below x sum (* i i)))) 1000)) (print (mapcar #'sb-thread:join-thread (loop repeat 4 collect (sb-thread:make-thread (lambda () (length (loop for i below 90000 collect i)))))))
(terpri) (sb-ext:exit :code 3)
L
sbcl --script a.lisp || echo $?
"""),
    Program("java", ("openjdk-17-jre-headless",), ignore=("*.p12", "hs_err*"), work=r"""
for j in /usr/lib/jvm/java-17-*/bin; do PATH=$PATH:$j; done
keytool -genkeypair -alias a -keyalg RSA -keysize 1024 -storepass secret -dname CN=a -keystore k.p12 -validity 9 2>&1; keytool -list -keystore k.p12 -storepass secret 2>&1 | grep -c PrivateKeyEntry; keytool -exportcert -rfc -alias a -keystore k.p12 -storepass secret | head -n 1
java -XX:+UseParallelGC -version 2>&1 | wc -l; java --list-modules | wc -l; java -Xmx32m none || echo none: $?
"""),
    Program("emacs", ("emacs-nox",), files={"table": lambda: table(3000)}, work=r"""
emacs-nox --batch -Q --eval '(progn (find-file "table") (sort-lines nil (point-min) (point-max)) (goto-char (point-min)) (while (re-search-forward "oak\([a-z]+\)" nil t) (replace-match "\1oak")) (write-file "out") (let ((h (make-hash-table :test (quote equal)))) (dotimes (i 30000) (puthash (format "k%d" (% (* i 7919) 503)) i h)) (message "%d %s" (hash-table-count h) (gethash "k7" h))) (garbage-collect) (require (quote json)) (message "%s" (json-encode (quote ((a . 1) (b . [1 2 3]))))) (kill-emacs 3))' || echo $?
""", ignore=(".emacs.d/*",)),
    Program("tcl", ("tcl",), alone=("tclsh8.6",), emulated=True, work=r"""
cat >a.tcl <<'T'
for {set i 0} {$i < 20000} {incr i} { dict lappend d [expr {$i * 7919 % 503}] [string repeat x [expr {$i % 20}]] }
puts "[dict size $d] [string length $d] [lindex [lsort -integer [dict keys $d]] 7]"
coroutine c apply {{} { yield; for {set i 0} {$i < 3} {incr i} { yield $i } }}; puts "[c][c][c] [regsub -all {b(.)} abcabc {<\1>}] [expr {2**200}]"
puts [catch {error oops} e]$e; puts [format %08.3f [expr {atan(1) * 4}]]; interp create s; puts [s eval {expr 6*7}]; interp delete s
T
tclsh8.6 a.tcl
""", environment={}),
    Program("guile", ("guile-3.0",), environment={"GUILE_AUTO_COMPILE": "0"}, work=r"""
guile-3.0 --no-auto-compile -c '(use-modules (ice-9 regex) (srfi srfi-1)) (define (f n) (if (< n 2) 1 (* n (f (- n 1))))) (display (f 300)) (newline)
  (define t (make-hash-table)) (for-each (lambda (i) (hash-set! t i (make-string (modulo i 40) #\x))) (iota 20000)) (display (hash-fold (lambda (k v a) (+ a (string-length v))) 0 t)) (newline)
  (display (regexp-substitute/global #f "b(.)" "abcabc" (quote pre) "<" 1 ">" (quote post))) (gc) (display (call/cc (lambda (k) (+ 1 (k 42)))))'
"""),
)
