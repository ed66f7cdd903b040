// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/cpu_test_support.h"

#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <map>

namespace Tessaline::Test {
namespace {

using Cpus = std::vector<std::size_t>;
using Nodes = std::vector<CpuNumaNode>;

TEST(ParseCpuList, ReadsTheKernelsFormat) {
    const struct {
        std::string_view text;
        Cpus numbers;
    } cases[] = {
        {"", {}},
        {"0", {0}},
        {"0-3,8,10-11", {0, 1, 2, 3, 8, 10, 11}},
        {"0-3,2-5", {0, 1, 2, 3, 4, 5}},
        {"7,1,7", {1, 7}},
        {"5-3", {}},
        {"5-3,9", {9}},
        {" \t\n,, 4 ,\n6", {4, 6}},
        {"4junk,6", {4, 6}},
        {"1 2", {1}},
        {"1,x,3", {1}},
        {"1,3-", {1}},
        {"1,3-x,5", {1}},
        {"1,-3", {1}},
        {"18446744073709551615", {18446744073709551615U}},
        {"18446744073709551614-18446744073709551615",
         {18446744073709551614U, 18446744073709551615U}},
        {"2,18446744073709551616,4", {2}},
        {"2,4-18446744073709551616", {2}},
    };
    for (const auto& [text, numbers] : cases) {
        EXPECT_EQ(parse_cpu_list(text), numbers) << '"' << text << '"';
    }
}

TEST(CpuTopology, NormalisesWhatItIsGiven) {
    const CpuTopology topology({{2, {9, 8, 9}}, {1, {}}, {0, {3, 1}}});
    EXPECT_EQ(topology.nodes(), (Nodes{{0, {1, 3}}, {2, {8, 9}}}));
    EXPECT_EQ(topology.logical_cpu_count(), 4U);
    EXPECT_EQ(CpuTopology().nodes(), (Nodes{{0, {0}}}));
}

TEST(CpuTopology, AnswersByNodeAndByCpu) {
    const CpuTopology topology({{0, {0, 1, 4}}, {2, {4, 5}}});
    EXPECT_EQ(topology.node(2)->logical_cpus, (Cpus{4, 5}));
    EXPECT_EQ(topology.node(1), nullptr);
    EXPECT_EQ(topology.numa_node_for_logical_cpu(5), 2);
    EXPECT_EQ(topology.numa_node_for_logical_cpu(4), 0) << "the first node that lists it";
    EXPECT_EQ(topology.numa_node_for_logical_cpu(6), -1);
    EXPECT_EQ(topology.logical_cpus_for_nodes({}), (Cpus{0, 1, 4, 5}));
    EXPECT_EQ(topology.logical_cpus_for_nodes(std::vector{2, 7, 0, 2}), (Cpus{0, 1, 4, 5}));
    EXPECT_EQ(topology.logical_cpus_for_nodes(std::vector{2}), (Cpus{4, 5}));
    EXPECT_EQ(topology.logical_cpus_for_nodes(std::vector{7}), Cpus{});
}

// A directory of files that goes away with the object.
class MadeUpNodes {
  public:
    explicit MadeUpNodes(const std::map<std::string, std::string>& files) {
        std::string name = (std::filesystem::temp_directory_path() / "nodesXXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary directory");
        }
        path_ = name;
        for (const auto& [file, text] : files) {
            std::filesystem::create_directories((path_ / file).parent_path());
            std::ofstream(path_ / file) << text;
        }
    }
    ~MadeUpNodes() { std::filesystem::remove_all(path_); }
    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

TEST(DiscoverCpuTopology, ReadsNodesAndFallsBackToOne) {
    const Cpus eight{0, 1, 2, 3, 4, 5, 6, 7};
    const struct {
        std::string_view situation;
        std::map<std::string, std::string> files;
        Cpus allowed;
        Nodes nodes;
    } cases[] = {
        {"no directory to speak of", {}, {5, 3, 3}, {{0, {3, 5}}}},
        {"two nodes with a gap between their ids",
         {{"online", "0,2\n"}, {"node0/cpulist", "0-3\n"}, {"node2/cpulist", "4-7\n"}},
         eight,
         {{0, {0, 1, 2, 3}}, {2, {4, 5, 6, 7}}}},
        {"a process restricted to part of one node",
         {{"online", "0-1"}, {"node0/cpulist", "0-7"}, {"node1/cpulist", "8-15"}},
         {2, 3},
         {{0, {2, 3}}}},
        {"a CPU that no node lists",
         {{"online", "0"}, {"node0/cpulist", "0-1"}},
         {1, 9},
         {{0, {1}}}},
        {"no node with an allowed CPU", {{"online", "3"}, {"node3/cpulist", "0"}}, {9}, {{0, {9}}}},
        {"a node without its file",
         {{"online", "0-1"}, {"node1/cpulist", " \t4-5 \nignored"}},
         eight,
         {{1, {4, 5}}}},
        {"a node id beyond int",
         {{"online", "1,2147483648"}, {"node1/cpulist", "0-7"}},
         {0, 1},
         {{0, {0, 1}}}},
        {"no number among the ids", {{"online", "none"}, {"node0/cpulist", "0"}}, {1}, {{0, {1}}}},
        {"white space for ids", {{"online", " \n1"}, {"node1/cpulist", "0"}}, {0}, {{0, {0}}}},
    };
    for (const auto& [situation, files, allowed, nodes] : cases) {
        const MadeUpNodes directory(files);
        EXPECT_EQ(discover_cpu_topology(directory.path(), allowed).nodes(), nodes) << situation;
    }
}

TEST(DiscoverCpuTopology, OffersOnThisMachineWhatTheThreadMayUse) {
    EXPECT_EQ(allowed_logical_cpus(), current_thread_cpus());
    EXPECT_THAT(discover_cpu_topology().logical_cpus_for_nodes({}),
                testing::IsSubsetOf(current_thread_cpus()));
    EXPECT_EQ(system_cpu_topology(), discover_cpu_topology());
}

} // namespace
} // namespace Tessaline::Test
