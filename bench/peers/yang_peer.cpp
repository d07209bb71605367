// The benchmarks' small objects in libyang: a line of JSON for each operation, with its time a leaf, or the
// bytes a leaf.
#include <libyang/libyang.h>
#include <malloc.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>
#include <string>

namespace {

constexpr std::size_t kLeavesPerInterface = 11;

void require(bool done, char const* what) {
  if (done) return;
  std::fprintf(stderr, "yang_peer: %s\n", what);
  std::exit(1);
}
void require(LY_ERR result, char const* what) { require(result == LY_SUCCESS, what); }

std::string nameOf(std::size_t i) {
  char text[32];
  std::snprintf(text, sizeof text, "ethernet%06zu", i);
  return text;
}

lyd_node* innerOf(lyd_node* parent, char const* name) {
  lyd_node* made = nullptr;
  require(lyd_new_inner(parent, nullptr, name, 0, &made), name);
  return made;
}
void leafOf(lyd_node* parent, char const* name, char const* value) {
  require(lyd_new_term(parent, nullptr, name, value, 0, nullptr), name);
}

// By the functions that take nodes, not paths: the quickest way there is.
lyd_node* treeOf(lys_module const* module, std::size_t interfaces) {
  lyd_node* root = nullptr;
  require(lyd_new_inner(nullptr, module, "interfaces", 0, &root), "interfaces");
  for (std::size_t i = 0; i < interfaces; ++i) {
    std::string const name = nameOf(i);
    lyd_node* entry = nullptr;
    require(lyd_new_list(root, nullptr, "interface", 0, &entry, name.c_str()), "interface");
    lyd_node* const config = innerOf(entry, "config");
    leafOf(config, "name", name.c_str());
    leafOf(config, "mtu", "9000");
    leafOf(config, "loopback-mode", "NONE");
    leafOf(config, "description", "to the second spine");
    leafOf(config, "enabled", "true");
    leafOf(innerOf(entry, "state"), "name", name.c_str());
    lyd_node* const holdTime = innerOf(entry, "hold-time");
    for (char const* const part : {"config", "state"}) {
      lyd_node* const values = innerOf(holdTime, part);
      leafOf(values, "up", "0");
      leafOf(values, "down", "0");
    }
    innerOf(entry, "subinterfaces");
  }
  return root;
}

// The path and the value of each leaf, in one buffer.
std::size_t walked(lyd_node const* root) {
  char path[256];
  std::size_t bytes = 0;
  std::size_t leaves = 0;
  lyd_node const* node = nullptr;
  LYD_TREE_DFS_BEGIN(root, node) {
    if ((node->schema->nodetype & LYS_LEAF) != 0) {
      require(lyd_path(node, LYD_PATH_STD, path, sizeof path) != nullptr, "path");
      bytes += std::char_traits<char>::length(path) + std::char_traits<char>::length(lyd_get_value(node));
      ++leaves;
    }
    LYD_TREE_DFS_END(root, node);
  }
  require(bytes > leaves, "walk");
  return leaves;
}

std::size_t heapInUse() {
  auto const heap = mallinfo2();
  return static_cast<std::size_t>(heap.uordblks + heap.hblkhd);
}

void tell(char const* what, double figure) {
  std::printf("{\"what\": \"%s\", \"figure\": %.3f}\n", what, figure);
}

// Nanoseconds of a processor an item, over half a second and twice at least.
template <class Work>
double timeOf(std::size_t items, Work const& work) {
  std::clock_t const begin = std::clock();
  std::clock_t spent = 0;
  std::size_t done = 0;
  while (done < 2 * items || spent < CLOCKS_PER_SEC / 2) {
    work();
    spent = std::clock() - begin;
    done += items;
  }
  return static_cast<double>(spent) * (1e9 / CLOCKS_PER_SEC) / static_cast<double>(done);
}

} // namespace

int main(int argc, char** argv) {
  require(argc == 3, "usage: yang_peer MODULE LEAVES");
  std::ifstream file(argv[1]);
  std::string const text{std::istreambuf_iterator<char>(file), {}};
  std::size_t const interfaces = std::strtoul(argv[2], nullptr, 10) / kLeavesPerInterface;
  std::size_t const leaves = interfaces * kLeavesPerInterface;

  ly_ctx* context = nullptr;
  require(ly_ctx_new(nullptr, 0, &context), "context");
  lys_module* module = nullptr;
  require(lys_parse_mem(context, text.c_str(), LYS_IN_YANG, &module), "module");

  std::size_t const before = heapInUse();
  lyd_node* root = treeOf(module, interfaces);
  tell("memory", static_cast<double>(heapInUse() - before) / static_cast<double>(leaves));
  require(walked(root) == leaves, "not all leaves are there");
  tell("walk", timeOf(leaves, [root] { walked(root); }));
  tell("json", timeOf(leaves, [root] {
         char* json = nullptr;
         require(lyd_print_mem(&json, root, LYD_JSON, LYD_PRINT_WITHSIBLINGS | LYD_PRINT_SHRINK), "json");
         std::free(json);
       }));
  std::size_t const count = interfaces < 250 ? interfaces : 250; // as the benchmarks' Set
  bool odd = false;
  tell("update", timeOf(count * 4, [&] {
         odd = !odd;
         for (std::size_t i = 0; i < count; ++i) {
           std::string const config = "/interfaces:interfaces/interface[name='" + nameOf(i) + "']/config/";
           auto const set = [&](char const* leaf, char const* value) {
             LY_ERR const result =
                 lyd_new_path(root, nullptr, (config + leaf).c_str(), value, LYD_NEW_PATH_UPDATE, nullptr);
             require(result == LY_SUCCESS || result == LY_EEXIST || result == LY_ENOT, "update");
           };
           set("name", nameOf(i).c_str());
           set("description", "to the second spine");
           set("mtu", odd ? "1501" : "1500");
           set("enabled", odd ? "false" : "true");
         }
       }));
  lyd_free_all(root);
  tell("build", timeOf(leaves, [&] {
         root = treeOf(module, interfaces);
         lyd_free_all(root);
       }));
  ly_ctx_destroy(context);
}
