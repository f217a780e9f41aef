#!/usr/bin/env escript
%% Makes the frames of this folder with an ASN.1 compiler and codec that share nothing with the ones under test: those
%% of Erlang/OTP (Debian packages erlang-base, erlang-asn1). The same seed makes the same files, byte for byte.
%% README.md says what is in them.
%% usage: make_vectors.escript [SEED [FOLDER]]    default: 1 and the script's own folder
-mode(compile).

-define(FRAME_LIMIT, 32767). % a size in the codec's interface is an int16_t
-define(LEAVES_IN_FULL, 200).
-define(LEAVES_OF_LARGE, 60).

main(Args) ->
    Here = filename:dirname(filename:absname(escript:script_name())),
    {Seed, Folder} = case Args of
        [] -> {1, Here};
        [S] -> {list_to_integer(S), Here};
        [S, F] -> {list_to_integer(S), F}
    end,
    Temp = string:trim(os:cmd("mktemp -d")),
    try
        Present = edition("Present", fun(Text) -> Text end, Here, Temp),
        Newer = edition("Newer", fun newer/1, Here, Temp),
        [begin
            rand:seed(exsss, Seed),
            write(Folder, Name, Present, Make())
        end || {Name, Make} <-
            [{"captured", fun captured/0}] ++ present(Present) ++ [{"newer", fun() -> newer_frames(Newer) end}]]
    after
        file:del_dir_r(Temp)
    end.

%%% The types, read from the modules.

%% edition(Name, Change, Here, Temp): compiles the modules, changed by Change, into the Erlang module Name and gives
%% the types in them: #{Name => type}, type being
%% {int, Low, High} | {enum, Names, NewNames} | {bits, Size, Extensible} | {octets | text, Low, High} |
%% {list, Low, High, Type} | {choice, Alternatives, NewAlternatives} | {seq, Members, NewMembers} | {ref, Name},
%% and a member {Name, Type, IsOptional}.
edition(Name, Change, Here, Temp) ->
    Folder = filename:join(Temp, Name),
    ok = file:make_dir(Folder),
    Files = filelib:wildcard(filename:join(Here, "../../../src/platform/msgset/*.asn1")),
    Texts = [begin
        {ok, Text} = file:read_file(File),
        %% Bits without names: with them the tool reads a bit string as the names that are set and drops its size.
        Bare = re:replace(Text, "BIT STRING \\{[^}]*\\}", "BIT STRING", [global, {return, list}]),
        Changed = Change(re:replace(Bare, "--[^\n]*", "", [global, {return, list}])),
        ok = file:write_file(filename:join(Folder, filename:basename(File)), Changed),
        Changed
    end || File <- Files],
    Set = filename:join(Folder, Name ++ ".set.asn"),
    ok = file:write_file(Set, [[filename:basename(File), "\n"] || File <- Files]),
    ok = asn1ct:compile(Set, [uper, maps, no_ok_wrapper, {outdir, Folder}, {i, Folder}]),
    true = code:add_patha(Folder),
    lists:foldl(fun(Text, All) -> maps:merge(All, types(Text)) end, #{}, Texts).

types(Text) ->
    maps:from_list([{Name, type(Body)} || {Name, Body} <- definitions(Text)]).

definitions(Text) ->
    case re:run(Text, "^([A-Z][A-Za-z0-9-]*) ::= (.*?)(?=^[A-Z])",
                [global, multiline, dotall, {capture, all_but_first, list}]) of
        {match, Found} -> [{Name, string:join(string:lexemes(Body, " \n"), " ")} || [Name, Body] <- Found];
        nomatch -> []
    end.

type("SEQUENCE {" ++ Body) -> {Members, New} = parts(Body), {seq, members(Members), members(New)};
type("CHOICE {" ++ Body) -> {Members, New} = parts(Body), {choice, members(Members), members(New)};
type("ENUMERATED {" ++ Body) ->
    {Names, New} = parts(Body),
    Bare = fun(All) -> [list_to_atom(hd(string:lexemes(One, " "))) || One <- All] end,
    {enum, Bare(Names), Bare(New)};
type("SEQUENCE (SIZE(" ++ Body) ->
    [Bounds, Of] = string:split(Body, ")) OF "),
    {Low, High} = bounds(Bounds),
    {list, Low, High, type(Of)};
type("INTEGER (" ++ Body) -> {Low, High} = bounds(Body), {int, Low, High};
type("BIT STRING (SIZE(" ++ Body) -> {Size, _} = string:to_integer(Body), {bits, Size, lists:member($., Body)};
type("OCTET STRING (SIZE(" ++ Body) -> {Low, High} = bounds(Body), {octets, Low, High};
type("OCTET STRING") -> {octets, 0, unbounded};
type("IA5String (SIZE(" ++ Body) -> {Low, High} = bounds(Body), {text, Low, High};
type(Name) -> {ref, Name}.

bounds(Text) ->
    {Low, Rest} = string:to_integer(Text),
    case string:trim(Rest, leading, ".") of
        ")" ++ _ -> {Low, Low};
        [] -> {Low, Low};
        More -> {High, _} = string:to_integer(More), {Low, High}
    end.

%% The parts before and after the extension marker.
parts(Body) ->
    All = [string:trim(One) || One <- string:split(lists:takewhile(fun(C) -> C =/= $} end, Body), ",", all)],
    {Root, Rest} = lists:splitwith(fun(One) -> One =/= "..." end, All),
    {Root, [One || One <- Rest, One =/= "..."]}.

members(Texts) ->
    [begin
        [Name, Type] = string:split(Text, " "),
        case string:split(string:trim(Type), " OPTIONAL") of
            [Plain, ""] -> {list_to_atom(Name), type(Plain), true};
            [Plain] -> {list_to_atom(Name), type(Plain), false}
        end
    end || Text <- Texts].

%% The names of the types in Type, itself included.
reach(Type, Types) -> lists:reverse(reach(Type, Types, [])).
reach({ref, Name}, Types, Seen) ->
    case lists:member(Name, Seen) of
        true -> Seen;
        false -> reach(maps:get(Name, Types), Types, [Name | Seen])
    end;
reach({list, _, _, Of}, Types, Seen) -> reach(Of, Types, Seen);
reach({Kind, Members, New}, Types, Seen) when Kind =:= seq; Kind =:= choice ->
    lists:foldl(fun({_, Type, _}, Before) -> reach(Type, Types, Before) end, Seen, Members ++ New);
reach(_, _, Seen) -> Seen.

%%% A newer edition: more than the present one knows at every extension marker within braces. A SPAT has such large
%%% additions that they are sent in pieces, a vehicle's message more additions than a short count of them can tell.

newer(Text) ->
    Additions = [["new1 INTEGER (0..255)"], ["new2 INTEGER (0..65535)"], octets(5), octets(200)],
    Optional = fun(All) -> [[One, " OPTIONAL"] || One <- All] end,
    More = fun(Names) -> [["more", integer_to_list(N), " INTEGER (0..7)"] || N <- Names] end,
    lists:foldl(fun({Name, Kind, New}, Now) ->
        re:replace(Now, "^(" ++ Name ++ " ::= " ++ Kind ++ " \\{[^}]*\\.\\.\\.[^}]*)\n\\}",
                   ["\\1, ", lists:join(", ", New), "\n}"], [global, multiline, {return, list}])
    end, Text, [
        {"[A-Z][A-Za-z0-9-]*", "SEQUENCE", Optional(Additions ++ More(lists:seq(6, 10)))},
        {"SPAT", "SEQUENCE", Optional([octets(16384), octets(17000)])},
        {"BasicSafetyMessage", "SEQUENCE", Optional(More(lists:seq(11, 70)))},
        {"[A-Z][A-Za-z0-9-]*", "CHOICE", Additions},
        {"[A-Z][A-Za-z0-9-]*", "ENUMERATED", ["new" ++ integer_to_list(N) || N <- lists:seq(1, 80)]}]).

octets(Size) -> io_lib:format("new~b OCTET STRING (SIZE(~b))", [Size, Size]).

%%% Values.

%% make(Type, How): a value. How is #{types => Types,
%%   optional => in | out | random | deep, the last with those in that have members of their own,
%%   value => low | high | turn, and lists => low | turn for the sizes of lists,
%%   longest => Name of a list that has its largest size, octets => Size of what has no bound,
%%   new => {Name, Names}, a type that has something new, and what, or any}, the last three where wanted.
make({ref, Name}, How = #{types := Types}) -> value(maps:get(Name, Types), Name, How);
make(Type, How) -> value(Type, Type, How).

value({int, Low, High}, Name, How) ->
    pick(Name, How, Low, High, fun() -> Low + rand:uniform(High - Low + 1) - 1 end);
value({enum, Names, New}, Name, How) ->
    case new(Name, New, How) of
        none -> nth(Name, Names, How);
        Which -> Which
    end;
value({bits, Size, true}, Name, #{value := turn}) ->
    case turn(Name, 3) of
        2 -> <<(random_bits(Size + rand:uniform(40)))/bitstring, 1:1>>;
        _ -> random_bits(Size)
    end;
value({bits, Size, _}, Name, How) ->
    pick(Name, How, <<0:Size>>, <<(1 bsl Size - 1):Size>>, fun() -> random_bits(Size) end);
value({octets, Low, High}, Name, How) ->
    rand:bytes(size(Name, How, Low, High));
value({text, Low, High}, Name, How) ->
    case {size(Name, How, Low, High), turn(text, 3)} of
        {512, _} -> [C rem 128 || C <- lists:seq(0, 511)];
        {Size, 0} -> [31 + rand:uniform(95) || _ <- lists:seq(1, Size)];
        {Size, _} -> [lists:nth(rand:uniform(29), "ABCDEFGHIJKLMNOPQRSTUVWXYZ <&") || _ <- lists:seq(1, Size)]
    end;
value({list, _, High, Of}, Name, How = #{longest := Name}) ->
    [make(Of, maps:remove(longest, How)) || _ <- lists:seq(1, High)];
value({list, Low, High, Of}, Name, How = #{lists := Lists}) ->
    More = case Lists of
        low -> 0;
        turn -> min(High - Low, turn(Name, 3))
    end,
    [make(Of, How) | [make(Of, maps:remove(longest, How)) || _ <- lists:seq(2, Low + More)]];
value({choice, Members, New}, Name, How) ->
    {Member, Type, _} = case {new(Name, New, How), [M || M <- Members, leads(M, How)]} of
        {none, []} -> nth(Name, Members, How);
        {none, [M | _]} -> M;
        {Which, _} -> Which
    end,
    {Member, make(Type, How)};
value({seq, Members, New}, Name, How) ->
    Added = case How of
        #{new := {Name, Which}} -> [M || M = {N, _, _} <- New, lists:member(N, Which)];
        #{new := any} -> [M || M = {_, Kind, _} <- New, not is_large(Kind), rand:uniform(12) =:= 1];
        _ -> []
    end,
    maps:from_list([{Member, make(Type, How)} || M = {Member, Type, Optional} <- Members,
                    not Optional orelse leads(M, How) orelse wanted({Name, Member}, Type, How)] ++
                   [{Member, make(Type, How)} || {Member, Type, _} <- Added]).

%% Whether it is sent in pieces.
is_large({octets, Size, _}) -> Size >= 16384;
is_large(_) -> false.

wanted(_, _, #{optional := in}) -> true;
wanted(_, _, #{optional := out}) -> false;
wanted(Name, {ref, Type}, How = #{optional := deep, types := Types}) ->
    lists:member(element(1, maps:get(Type, Types)), [seq, choice, list])
        orelse wanted(Name, Type, How#{optional := random});
wanted(Name, _, _) -> pick(Name, #{}, true, false, fun() -> rand:uniform(2) =:= 1 end).

%% Whether the member leads to what How is about.
leads({_, Type, _}, #{types := Types, longest := Name}) -> lists:member(Name, reach(Type, Types));
leads({_, Type, _}, #{types := Types, new := {Name, _}}) -> lists:member(Name, reach(Type, Types));
leads(_, _) -> false.

%% Something new of the type: where one is asked for, the first time and every other.
new(Name, New, #{new := {Name, [Which]}}) ->
    [Found] = [N || N <- New, N =:= Which orelse is_tuple(N) andalso element(1, N) =:= Which],
    case turn({new, Name, Which}, 2) of
        0 -> Found;
        1 -> none
    end;
new(_, New, #{new := any}) when New =/= [] ->
    case rand:uniform(6) of
        1 -> lists:nth(rand:uniform(min(4, length(New))), New);
        _ -> none
    end;
new(_, _, _) -> none.

nth(_, All, #{value := low}) -> hd(All);
nth(_, All, #{value := high}) -> lists:last(All);
nth(Name, All, _) -> lists:nth(turn(Name, length(All)) + 1, All).

pick(_, #{value := low}, Low, _, _) -> Low;
pick(_, #{value := high}, _, High, _) -> High;
pick(Name, _, Low, High, Other) ->
    case turn(Name, 5) of
        0 -> Low;
        1 -> High;
        _ -> Other()
    end.

size(_, #{octets := Size}, _, unbounded) -> Size;
size(_, _, Low, unbounded) -> Low + rand:uniform(20);
size(Name, How, Low, High) ->
    pick(Name, How, Low, High, fun() -> Low + rand:uniform(min(High - Low, 20) + 1) - 1 end).

random_bits(Size) -> << <<(rand:uniform(2) - 1):1>> || _ <- lists:seq(1, Size) >>.

%% The next of 0..Count-1 for Name, round and round.
turn(Name, Count) ->
    Next = case get({turn, Name}) of
        undefined -> 0;
        Last -> Last + 1
    end,
    put({turn, Name}, Next),
    Next rem Count.

%%% The frames: {Name, Octets} or, with octets that hold what is to be read from them, {Name, Octets, Read}.

captured() ->
    %% The record of the first ends 13 bits early; they are taken as zero, the value that the other phases without a
    %% time have there. The second is whole.
    [{Name, << <<(list_to_integer([Digit], 16)):4>> || Digit <- lists:append(Hex) >>} || {Name, Hex} <- [
        {"twelve_phases",
         ["36B6FA9DB8E6C0080008010828058082300000006CC0408C0000001B30182500000000000A08C0000001090302300000004240E0",
          "94000000000048250000000118140940000000460582500000000001A08C0000000550702300000001541E09400000000000"]},
        {"vehicle",
         ["07A4660606268666260636FE6063344D1BD748F8710A68800000004018018B9C46BEABE83FBFFFE07E2D07D03648000000"]}]].

%% What makes the frames of every message, by file.
present(Types) ->
    {choice, Members, New} = maps:get("MessageFrame", Types),
    [{re:replace(atom_to_list(Member), "Frame$", "", [{return, list}]), fun() -> frames(Member, Type, Types) end}
        || {Member, Type, _} <- Members ++ New].

frames(Member, Type, Types) ->
    Turn = #{types => Types, optional => random, value => turn, lists => low},
    Longest = [Name || Name <- reach(Type, Types), element(1, maps:get(Name, Types)) =:= list],
    Sizes = case Member of
        msgFrameExt -> [0, 1, 127, 128, 1500, 16380, 16383, 16384, 20000, 32000];
        _ -> []
    end,
    Hows = [{"bare", Turn#{optional := out, value := low}},
            {"lowest", Turn#{optional := in, value := low}},
            {"highest", Turn#{optional := in, value := high}}] ++
           [{"longest_" ++ Name, Turn#{longest => Name}} || Name <- Longest] ++
           [{"octets_" ++ integer_to_list(Size), Turn#{octets => Size}} || Size <- Sizes] ++
           [{"all_" ++ integer_to_list(N), Turn#{optional := in}} || Sizes =:= [], N <- lists:seq(1, 6)] ++
           [{"deep_" ++ integer_to_list(N), Turn#{optional := deep}} || Sizes =:= [], N <- lists:seq(1, 4)] ++
           [{"any_" ++ integer_to_list(N), Turn#{lists := turn}} || Sizes =:= [], N <- lists:seq(1, 10)],
    [{Name, 'Present':encode('MessageFrame', {Member, make(Type, How)})} || {Name, How} <- Hows].

newer_frames(Types) ->
    Turn = #{types => Types, optional => random, value => turn, lists => turn},
    Additions = [[new1], [new2], [new5], [new200], [more10], [new1, new2, new5],
                 [new1, new2, new5, new200, more6, more7, more8, more9, more10]],
    Alternatives = [[new1], [new2], [new5], [new200]],
    Spat = [{Name, Which} || {Name, All} <- [{"SPAT", Additions}, {"IntersectionState", Additions},
                                            {"PhaseState", Additions},
                                            {"TimeChangeDetails", Alternatives},
                                            {"LightState", [[new1], [new2], [new70]]}], Which <- All],
    Frames = [{newer_name(New), {spatFrame, make({ref, "SPAT"}, Turn#{new => New})}} || New <- Spat] ++
             [{newer_name(New), make({ref, "MessageFrame"}, Turn#{new => New})}
                 || Which <- Alternatives, New <- [{"MessageFrame", Which}]] ++
             [{atom_to_list(Member) ++ "_" ++ integer_to_list(N), {Member, make(Type, Turn#{new => any})}}
                 || {Member, Type, _} <- element(2, maps:get("MessageFrame", Types)), N <- lists:seq(1, 4)],
    %% The tool does not skip what is sent in pieces, but what is read must be the same without it.
    [{Name, 'Newer':encode('MessageFrame', Value)} || {Name, Value} <- Frames] ++
    [begin
        Value = make({ref, "SPAT"}, Turn#{new => New}),
        Without = 'Newer':encode('MessageFrame', {spatFrame, maps:remove(Which, Value)}),
        {newer_name(New), 'Newer':encode('MessageFrame', {spatFrame, Value}), Without}
    end || Which <- [new16384, new17000], New <- [{"SPAT", [Which]}]].

newer_name({Type, [Which | More]}) ->
    Type ++ "_" ++ atom_to_list(Which) ++ case More of
        [] -> "";
        _ -> "_and_" ++ integer_to_list(length(More))
    end.

%%% The files.

write(Folder, Name, Types, Frames) ->
    ok = file:write_file(filename:join(Folder, Name ++ ".txt"), [
        "# Made by make_vectors.escript.\n", [["\n" | frame(Frame, Types)] || Frame <- Frames]]).

frame({Name, Octets}, Types) -> frame({Name, Octets, Octets}, Types);
frame({Name, Octets, Read}, Types) ->
    true = byte_size(Octets) =< ?FRAME_LIMIT,
    Lines = leaves({ref, "MessageFrame"}, 'Present':decode('MessageFrame', Read), "", Types),
    Count = length(Lines),
    Every = case Count =< ?LEAVES_IN_FULL of
        true -> 1;
        false -> Count div ?LEAVES_OF_LARGE
    end,
    [io_lib:format("frame ~s\n", [Name]), hex(Octets),
     io_lib:format("leaves ~b ~8.16.0B\n", [Count, erlang:crc32([[Line, "\n"] || Line <- Lines])]),
     [[Line, "\n"] || {Line, At} <- lists:zip(Lines, lists:seq(0, Count - 1)), At rem Every =:= 0]].

hex(<<Line:50/binary, Rest/binary>>) when Rest =/= <<>> -> [hex(Line) | hex(Rest)];
hex(Octets) -> ["hex ", digits(Octets), "\n"].

digits(Octets) -> [io_lib:format("~2.16.0B", [Octet]) || <<Octet>> <= Octets].

%% What the value holds, a line for each: see README.md.
leaves({ref, Name}, Value, Path, Types) -> leaves(maps:get(Name, Types), Value, Path, Types);
leaves({int, _, _}, Value, Path, _) -> [line(Path, integer_to_list(Value))];
leaves({enum, Names, _}, Value, Path, _) ->
    Name = case Value of
        {asn1_enum, _} -> hd(Names);
        _ -> Value
    end,
    Before = lists:takewhile(fun(One) -> One =/= Name end, Names),
    true = length(Before) < length(Names),
    [line(Path, io_lib:format("~s (~b)", [Name, length(Before)]))];
leaves({bits, _, _}, Value, Path, _) -> [line(Path, ["'", [$0 + Bit || <<Bit:1>> <= Value], "'B"])];
leaves({octets, _, _}, Value, Path, _) when byte_size(Value) > 512 ->
    [line(Path, io_lib:format("~b octets ~8.16.0B", [byte_size(Value), erlang:crc32(Value)]))];
leaves({octets, _, _}, Value, Path, _) -> [line(Path, ["'", digits(Value), "'H"])];
leaves({text, _, _}, Value, Path, _) ->
    [line(Path, ["\"", [case C < 32 orelse C > 126 orelse C =:= $\\ orelse C =:= $" of
        true -> io_lib:format("\\~2.16.0B", [C]);
        false -> C
    end || C <- Value], "\""])];
leaves({list, _, _, Of}, Value, Path, Types) ->
    [line([Path, "[]"], integer_to_list(length(Value))) |
     lists:append([leaves(Of, One, [Path, "[", integer_to_list(At), "]"], Types)
                   || {One, At} <- lists:zip(Value, lists:seq(0, length(Value) - 1))])];
leaves({choice, _, _}, {asn1_ExtAlt, _}, Path, _) -> [line(Path, "none")];
leaves({choice, Members, New}, {Member, Value}, Path, Types) ->
    {_, Type, _} = lists:keyfind(Member, 1, Members ++ New),
    leaves(Type, Value, under(Path, Member), Types);
leaves({seq, Members, []}, Value, Path, Types) ->
    lists:append([case Value of
        #{Member := One} -> leaves(Type, One, under(Path, Member), Types);
        _ -> [line(under(Path, Member), "absent")]
    end || {Member, Type, _} <- Members]).

under("", Member) -> atom_to_list(Member);
under(Path, Member) -> [Path, ".", atom_to_list(Member)].

line("", Value) -> line("MessageFrame", Value);
line(Path, Value) -> [Path, " = ", Value].
