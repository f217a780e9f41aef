#!/usr/bin/env escript
%% Prints what build_spat prints with the argument 1795401475, in the encoding of Erlang/OTP (Debian packages erlang-base,
%% erlang-asn1). The test compares with the file: make_expected.escript >build_spat.txt
-mode(compile).

main([]) ->
    Here = filename:dirname(filename:absname(escript:script_name())),
    Temp = string:trim(os:cmd("mktemp -d")),
    try
        compile_modules(filelib:wildcard(filename:join(Here, "../../src/platform/msgset/*.asn1")), Temp),
        print('Set':encode('MessageFrame', {spatFrame, spat()})),
        print('Set':encode('PositionOffsetLLV', stop_line()))
    after
        file:del_dir_r(Temp)
    end.

compile_modules(Files, Temp) ->
    [begin
        {ok, Text} = file:read_file(File),
        %% A bit string with named bits would lose its size.
        Bare = re:replace(Text, "BIT STRING \\{[^}]*\\}", "BIT STRING", [global]),
        ok = file:write_file(filename:join(Temp, filename:basename(File)), Bare)
    end || File <- Files],
    Set = filename:join(Temp, "Set.set.asn"),
    ok = file:write_file(Set, [[filename:basename(File), "\n"] || File <- Files]),
    ok = asn1ct:compile(Set, [uper, maps, no_ok_wrapper, {outdir, Temp}, {i, Temp}]),
    true = code:add_patha(Temp).

print(Octets) -> io:format("~s\n", [[io_lib:format("~2.16.0B", [Octet]) || <<Octet>> <= Octets]]).

spat() ->
    #{msgCnt => 1,
      moy => (326 * 24 + 2) * 60 + 37, % 23 November 2026, 02:37:55
      timeStamp => 55000,
      name => "Crossing 12",
      intersections => [
          #{intersectionId => #{region => 1, id => 12},
            status => <<0:5, 1:1, 0:10>>, % fixedTimeOperation
            phases => [
                #{id => 3, phaseStates => [#{light => 'protected-green', timing => {counting, green()}}]},
                #{id => 4, phaseStates => [#{light => red, timing => {counting, red()}}]}]}]}.

%% Tenths of a second, and halves of a percent.
green() ->
    #{startTime => 0, minEndTime => 100, maxEndTime => 150, likelyEndTime => 125, timeConfidence => 180,
      nextStartTime => 600, nextDuration => 200}.
red() -> #{startTime => 0, likelyEndTime => 155, nextStartTime => 36001, nextDuration => 36001}.

%% The narrowest alternatives for 1500 and -2100 units of 1e-7 degree, and for -15 units of 0.1 m.
stop_line() -> #{offsetLL => {'position-LL2', #{lon => -2100, lat => 1500}}, offsetV => {offset1, -15}}.
