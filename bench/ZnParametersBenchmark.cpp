// Cost of reading and printing the parameters of a Via header with ZnParameters, against the same
// split done with std::string::find into a vector of pairs and joined back, in one run.
//
// ZnParameters reads its text through a byte-array stream, one virtual mark() and read() per
// byte, checks every byte against the SIP grammar, copies each key and value into private texts
// of their own and takes the list's mutex to print. The baseline only looks for ';' and '=' and
// checks nothing. Both start from an empty list every iteration, as a header parser does.
#include "ZnUtil/ZnParameters.h"

#include "ZnUtil/ZnString.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace
{

const char* const kVia = "branch=z9hG4bK776asdhds;received=192.0.2.1;rport=5060;ttl=1";
const char* const kViaPrinted = "ttl=1;rport=5060;received=192.0.2.1;branch=z9hG4bK776asdhds";

using StdParameters = std::vector<std::pair<std::string, std::string>>;

/// Splits \p text at ';' into key and value at the first '='.
void stdSplit(const std::string& text, StdParameters& out)
{
    size_t start = 0;
    while (start <= text.size())
    {
        size_t end = text.find(';', start);
        if (end == std::string::npos)
        {
            end = text.size();
        }
        const size_t equals = text.find('=', start);
        if (equals != std::string::npos && equals < end)
        {
            out.emplace_back(text.substr(start, equals - start),
                             text.substr(equals + 1, end - equals - 1));
        }
        else
        {
            out.emplace_back(text.substr(start, end - start), std::string());
        }
        start = end + 1;
    }
}

/// Joins \p parameters back with ';', a key alone when its value is empty.
std::string stdJoin(const StdParameters& parameters)
{
    std::string text;
    for (size_t i = 0; i < parameters.size(); ++i)
    {
        if (i != 0)
        {
            text += ';';
        }
        text += parameters[i].first;
        if (!parameters[i].second.empty())
        {
            text += '=';
            text += parameters[i].second;
        }
    }
    return text;
}

void BM_ZnParameters_ParseGetString(benchmark::State& state)
{
    {
        ZnParameters check;
        check.parse(kVia);
        if (check.size() != 4 || check.getString() != kViaPrinted)
        {
            state.SkipWithError("ZnParameters printed another text");
            return;
        }
    }
    for (auto _ : state)
    {
        ZnParameters parameters;
        parameters.parse(kVia);
        ZnString text = parameters.getString();
        benchmark::DoNotOptimize(text.c_str());
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(std::string(kVia).size()));
}
BENCHMARK(BM_ZnParameters_ParseGetString);

void BM_StdSplit_ParseGetString(benchmark::State& state)
{
    const std::string via(kVia);
    {
        StdParameters check;
        stdSplit(via, check);
        if (check.size() != 4 || stdJoin(check) != via)
        {
            state.SkipWithError("the split joined back to another text");
            return;
        }
    }
    for (auto _ : state)
    {
        StdParameters parameters;
        stdSplit(via, parameters);
        std::string text = stdJoin(parameters);
        benchmark::DoNotOptimize(text.data());
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(via.size()));
}
BENCHMARK(BM_StdSplit_ParseGetString);

} // namespace

BENCHMARK_MAIN();
