# SPDX-License-Identifier: Apache-2.0
"""Programs with an allocator of their own linked in; others with jemalloc are redis and bind."""

from inputs import text
from program import Program

TEXT = {"text": lambda: text(200_000)}

PROGRAMS = (
    Program("tcmalloc", ("swi-prolog-core",), alone=("swipl",), slice=("defaults", "record"), emulated=True, work=r"""
export SWI_HOME_DIR=$TREE/usr/lib/swi-prolog
cat >a.pl <<'P'
:- initialization(main). :- use_module(library(lists)). q([], [], _).
sel(X, [X|T], T). sel(X, [H|T], [H|R]) :- sel(X, T, R).
queens(N, Q) :- numlist(1, N, L), place(L, [], Q). place([], Q, Q). place(L, S, Q) :- sel(X, L, R), safe(X, 1, S), place(R, [X|S], Q).
safe(_, _, []). safe(X, D, [Y|T]) :- X =\= Y + D, X =\= Y - D, E is D + 1, safe(X, E, T).
main :- queens(10, Q), print(Q), nl, F is 200 ** 50, print(F), nl, findall(X, (between(1, 30000, X), X mod 7 =:= 0), L), length(L, N), print(N), nl, thread_create(true, T), thread_join(T, S), print(S), nl, assertz(f(1)), garbage_collect, halt(3).
P
swipl -q a.pl || echo $?
"""),
    Program("jemalloc", ("nghttp2-server", "nghttp2-proxy", "nghttp2-client"), files=TEXT, ignore=("out*", "*.pem"), work=r"""
nghttpd --no-tls -d /work 8081 >out 2>&1 & server=$!
await sh -c 'nghttp http://127.0.0.1:8081/text | cmp -s - text'
nghttpx -f '127.0.0.1,8080;no-tls' -b '127.0.0.1,8081;;proto=h2' --workers 2 --accesslog-file=/dev/null --errorlog-file=out2 2>out3 & proxy=$!
await sh -c 'nghttp http://127.0.0.1:8080/text | cmp -s - text'; for i in $(seq 8); do nghttp http://127.0.0.1:8080/text | cmp - text; done; h2load -n 60 -c 4 -m 4 http://127.0.0.1:8080/text | grep -c '60 succeeded'; kill -QUIT $proxy; wait $proxy || echo $?; kill $server; wait $server || echo $?
"""),
)
