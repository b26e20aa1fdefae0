/* The configuration text grammar: a header, then nodes. A node is a named or unnamed value, an
   empty named node, a named byte array, or a named block of nodes that may also hold one string.
   The first syntax error ends the parse: no rule recovers through `error`, so the parser unwinds,
   freeing what the popped symbols hold. The rules are kept in this order and form, quirks
   included (an indefinite inside a list carries its own ";"), since files depend on them. */

%require "3.8"
%define api.pure full
%define api.prefix {scfg}
%define api.token.prefix {CFG_}
%define api.value.type {Kiv::ConfigValue}
%define parse.error simple

%parse-param {Kiv::scfgFlexLexer & scanner} {Kiv::ConfigBuilder & builder}
%lex-param {Kiv::scfgFlexLexer & scanner} {Kiv::ConfigBuilder & builder}

%code requires {
#include "ConfigGrammerNew.h"
}

%code {
/* A fixed stack of 500 entries on the machine stack: deeper nesting is a syntax error, never a
   stack overflow, and no parse allocates a stack. */
#define YYMAXDEPTH 500
#define YYINITDEPTH 500

static int scfglex(Kiv::ConfigValue * value, Kiv::scfgFlexLexer & scanner, Kiv::ConfigBuilder & builder)
{
    const int code = scanner.Lex(*value);
    if (code >= 0)
        return code;
    /* The parser takes this as an error already reported, and unwinds. */
    builder.ScanError(scanner.Line());
    return CFG_SCFGerror;
}

static void scfgerror(Kiv::scfgFlexLexer & scanner, Kiv::ConfigBuilder & builder, const char *)
{
    builder.SyntaxError(scanner.Line(), scanner.LastToken());
}
}

/* Terminals in alphabetical order. */
%token ASSIGN CLOSE COMMA END
%token <text> FLOAT FLOATIND FLOATINF FLOATQNAN HEXSTRING INT
%token OPEN RAWASSIGN SC START
%token <text> STRING
%token VERSION

%type <node> compoundNodeList dataNode node nodeList version
%type <item> item
%type <text> stringItem stringNode

%destructor { builder.Discard($$); } <node>

%start main

%%

main: version nodeList                                    { (void)$1; (void)$2; }
    ;
version: VERSION FLOAT                                    { builder.SetVersion($2); $$ = builder.Root(); }
    ;
node: dataNode                                            { $$ = $1; }
    | ASSIGN dataNode                                     { $$ = $2; }
    | STRING ASSIGN dataNode                              { $$ = builder.Named($3, $1); }
    | STRING ASSIGN SC                                    { $$ = builder.Named(Kiv::ConfigBuilder::NewNode(), $1); }
    | STRING compoundNodeList                             { $$ = builder.Named($2, $1); }
    | STRING OPEN STRING CLOSE compoundNodeList           { $$ = builder.Block($5, $1, $3); }
    ;
dataNode: INT SC                                          { $$ = Kiv::ConfigBuilder::IntNode($1); }
    | FLOAT SC                                            { $$ = Kiv::ConfigBuilder::FloatNode(Kiv::ConfigBuilder::FloatBits($1)); }
    | FLOATQNAN SC                                        { $$ = Kiv::ConfigBuilder::FloatNode(Kiv::ConfigBuilder::QuietNanBits($1)); }
    | FLOATINF SC                                         { $$ = Kiv::ConfigBuilder::FloatNode(Kiv::ConfigBuilder::InfinityBits($1)); }
    | FLOATIND SC                                         { $$ = Kiv::ConfigBuilder::FloatNode(Kiv::ConfigBuilder::IndefiniteBits($1)); }
    ;
node: STRING ASSIGN RAWASSIGN dataNode                    { $$ = builder.Named($4, $1); }
    ;
dataNode: HEXSTRING SC                                    { $$ = Kiv::ConfigBuilder::ByteNode($1); }
    ;
stringItem: STRING                                        { $$ = $1; }
    ;
stringNode: stringItem                                    { $$ = $1; }
    | stringNode stringItem                               { $$ = scanner.Join($1, $2); }
    ;
dataNode: stringNode SC                                   { $$ = builder.StringNode($1); }
    | OPEN dataArray CLOSE SC                             { $$ = builder.ArrayNode(); }
    | dataArray SC                                        { $$ = builder.ArrayNode(); }
    ;
dataArray: dataArray COMMA item                           { builder.AddItem($3); }
    | item COMMA item                                     { builder.StartList($1); builder.AddItem($3); }
    | OPEN item CLOSE                                     { builder.StartList($2); }
    ;
compoundNodeList: START nodeList END                      { $$ = $2; }
    | START END                                           { $$ = Kiv::ConfigBuilder::NewNode(); }
    ;
/* The symbol before a list is the header at the top level, whose value is the root, and "{" in a
   block, whose value is null. */
nodeList: node                                            { $$ = builder.FirstChild($<node>0, $1); }
    | nodeList node                                       { $$ = Kiv::ConfigBuilder::AddChild($1, $2); }
    ;
item: INT                                                 { $$ = Kiv::ConfigBuilder::IntItem($1); }
    | FLOAT                                               { $$ = Kiv::ConfigBuilder::FloatItem(Kiv::ConfigBuilder::FloatBits($1)); }
    | FLOATQNAN                                           { $$ = Kiv::ConfigBuilder::FloatItem(Kiv::ConfigBuilder::QuietNanBits($1)); }
    | FLOATINF                                            { $$ = Kiv::ConfigBuilder::FloatItem(Kiv::ConfigBuilder::InfinityBits($1)); }
    | FLOATIND SC                                         { $$ = Kiv::ConfigBuilder::FloatItem(Kiv::ConfigBuilder::IndefiniteBits($1)); }
    | STRING                                              { $$ = Kiv::ConfigBuilder::StringItem($1); }
    ;

%%
