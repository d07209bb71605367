// The benchmarks' small objects in ygot, and in the cache of openconfig/gnmi: a line of JSON for each
// operation, with its time a leaf, or the bytes a leaf.
package main

import (
	"encoding/json"
	"fmt"
	"log"
	"os"
	"runtime"
	"strconv"
	"syscall"
	"time"

	"github.com/openconfig/gnmi/cache"
	"github.com/openconfig/gnmi/ctree"
	gnmi "github.com/openconfig/gnmi/proto/gnmi"
	"github.com/openconfig/ygot/ygot"
	"google.golang.org/protobuf/proto"
)

const leavesPerInterface = 11

// What ygot's generator makes of such a module, as far as its printers look at it.
type Root struct {
	Interfaces *Interfaces `path:"interfaces"`
}
type Interfaces struct {
	Interface map[string]*Interface `path:"interface"`
}
type Interface struct {
	Name          *string        `path:"name"`
	Config        *Config        `path:"config"`
	State         *State         `path:"state"`
	HoldTime      *HoldTime      `path:"hold-time"`
	Subinterfaces *Subinterfaces `path:"subinterfaces"`
}
type Config struct {
	Name         *string `path:"name"`
	Mtu          *uint16 `path:"mtu"`
	LoopbackMode *string `path:"loopback-mode"`
	Description  *string `path:"description"`
	Enabled      *bool   `path:"enabled"`
}
type State struct {
	Name *string `path:"name"`
}
type HoldTime struct {
	Config *HoldTimeValues `path:"config"`
	State  *HoldTimeValues `path:"state"`
}
type HoldTimeValues struct {
	Up   *uint32 `path:"up"`
	Down *uint32 `path:"down"`
}
type Subinterfaces struct{}

func (*Root) IsYANGGoStruct()           {}
func (*Interfaces) IsYANGGoStruct()     {}
func (*Interface) IsYANGGoStruct()      {}
func (*Config) IsYANGGoStruct()         {}
func (*State) IsYANGGoStruct()          {}
func (*HoldTime) IsYANGGoStruct()       {}
func (*HoldTimeValues) IsYANGGoStruct() {}
func (*Subinterfaces) IsYANGGoStruct()  {}

func (i *Interface) ΛListKeyMap() (map[string]interface{}, error) {
	return map[string]interface{}{"name": *i.Name}, nil
}

func require(err error) {
	if err != nil {
		log.Fatal(err)
	}
}

func nameOf(i int) string { return fmt.Sprintf("ethernet%06d", i) }

func treeOf(interfaces int) *Root {
	all := map[string]*Interface{}
	values := func() *HoldTimeValues { return &HoldTimeValues{ygot.Uint32(0), ygot.Uint32(0)} }
	for i := 0; i < interfaces; i++ {
		name := nameOf(i)
		all[name] = &Interface{
			Name: ygot.String(name),
			Config: &Config{ygot.String(name), ygot.Uint16(9000), ygot.String("NONE"),
				ygot.String("to the second spine"), ygot.Bool(true)},
			State:         &State{ygot.String(name)},
			HoldTime:      &HoldTime{values(), values()},
			Subinterfaces: &Subinterfaces{},
		}
	}
	return &Root{&Interfaces{all}}
}

func tell(what string, figure float64) {
	fmt.Printf("{\"what\": %q, \"figure\": %.3f}\n", what, figure)
}

// What this process has used of processors, its collector's threads included.
func processorTime() time.Duration {
	var used syscall.Rusage
	require(syscall.Getrusage(syscall.RUSAGE_SELF, &used))
	return time.Duration(used.Utime.Nano() + used.Stime.Nano())
}

// Nanoseconds of a processor an item, over half a second and twice at least.
func timeOf(items int, work func()) float64 {
	begin := processorTime()
	spent := time.Duration(0)
	done := 0
	for done < 2*items || spent < 500*time.Millisecond {
		work()
		spent = processorTime() - begin
		done += items
	}
	return float64(spent.Nanoseconds()) / float64(done)
}

func heapInUse() float64 {
	var stats runtime.MemStats
	runtime.GC()
	runtime.ReadMemStats(&stats)
	return float64(stats.HeapAlloc)
}

// --- ygot ---------------------------------------------------------------------------------------------------

func notificationsOf(root *Root) []*gnmi.Notification {
	all, err := ygot.TogNMINotifications(root, 1_700_000_000_000_000_000,
		ygot.GNMINotificationsConfig{UsePathElem: true})
	require(err)
	return all
}

func structs(interfaces int) {
	leaves := interfaces * leavesPerInterface
	before := heapInUse()
	root := treeOf(interfaces)
	tell("ygot memory", (heapInUse()-before)/float64(leaves))
	tell("ygot build", timeOf(leaves, func() { runtime.KeepAlive(treeOf(interfaces)) }))
	tell("ygot walk", timeOf(leaves, func() {
		found := 0
		for _, one := range notificationsOf(root) {
			found += len(one.Update)
			_, err := proto.Marshal(one)
			require(err)
		}
		if found != leaves {
			log.Fatalf("%d leaves instead of %d", found, leaves)
		}
	}))
	tell("ygot json", timeOf(leaves, func() {
		tree, err := ygot.ConstructIETFJSON(root, nil)
		require(err)
		_, err = json.Marshal(tree)
		require(err)
	}))
	runtime.KeepAlive(root)
}

// --- the cache ----------------------------------------------------------------------------------------------

const target = "device"

func elem(names ...string) []*gnmi.PathElem {
	var all []*gnmi.PathElem
	for _, name := range names {
		all = append(all, &gnmi.PathElem{Name: name})
	}
	return all
}

func text(value string) *gnmi.TypedValue {
	return &gnmi.TypedValue{Value: &gnmi.TypedValue_StringVal{StringVal: value}}
}
func number(value uint64) *gnmi.TypedValue {
	return &gnmi.TypedValue{Value: &gnmi.TypedValue_UintVal{UintVal: value}}
}
func flag(value bool) *gnmi.TypedValue {
	return &gnmi.TypedValue{Value: &gnmi.TypedValue_BoolVal{BoolVal: value}}
}

type leaf struct {
	path  []string
	value *gnmi.TypedValue
}

// One notification an interface, as a subscriber gets them.
func notificationOf(i int, timestamp int64, leaves []leaf) *gnmi.Notification {
	prefix := elem("interfaces", "interface")
	prefix[1].Key = map[string]string{"name": nameOf(i)}
	made := &gnmi.Notification{Timestamp: timestamp, Prefix: &gnmi.Path{Target: target, Elem: prefix}}
	for _, one := range leaves {
		made.Update = append(made.Update, &gnmi.Update{Path: &gnmi.Path{Elem: elem(one.path...)}, Val: one.value})
	}
	return made
}

func allOf(i int, timestamp int64) *gnmi.Notification {
	name := text(nameOf(i))
	return notificationOf(i, timestamp, []leaf{
		{[]string{"name"}, name}, {[]string{"config", "name"}, name}, {[]string{"config", "mtu"}, number(9000)},
		{[]string{"config", "loopback-mode"}, text("NONE")},
		{[]string{"config", "description"}, text("to the second spine")}, {[]string{"config", "enabled"}, flag(true)},
		{[]string{"state", "name"}, name},
		{[]string{"hold-time", "config", "up"}, number(0)}, {[]string{"hold-time", "config", "down"}, number(0)},
		{[]string{"hold-time", "state", "up"}, number(0)}, {[]string{"hold-time", "state", "down"}, number(0)},
	})
}

func cached(interfaces int) {
	leaves := interfaces * leavesPerInterface
	timestamp := int64(1_700_000_000_000_000_000)
	filled := func() *cache.Cache {
		made := cache.New([]string{target})
		for i := 0; i < interfaces; i++ {
			require(made.GnmiUpdate(allOf(i, timestamp)))
		}
		return made
	}
	before := heapInUse()
	all := filled()
	tell("cache memory", (heapInUse()-before)/float64(leaves))
	tell("cache build", timeOf(leaves, func() { runtime.KeepAlive(filled()) }))
	tell("cache walk", timeOf(leaves, func() {
		found := 0
		require(all.Query(target, []string{"interfaces"}, func(_ []string, _ *ctree.Leaf, value interface{}) error {
			found++
			_, err := proto.Marshal(value.(*gnmi.Notification))
			return err
		}))
		if found != leaves {
			log.Fatalf("%d leaves instead of %d", found, leaves)
		}
	}))
	count := min(interfaces, 250) // as the benchmarks' Set
	odd := false
	tell("cache update", timeOf(count*4, func() {
		odd = !odd
		timestamp++
		mtu := uint64(1500)
		if odd {
			mtu++
		}
		for i := 0; i < count; i++ {
			require(all.GnmiUpdate(notificationOf(i, timestamp, []leaf{
				{[]string{"config", "name"}, text(nameOf(i))},
				{[]string{"config", "description"}, text("to the second spine")},
				{[]string{"config", "mtu"}, number(mtu)}, {[]string{"config", "enabled"}, flag(odd)},
			})))
		}
	}))
	runtime.KeepAlive(all)
}

func main() {
	leaves, err := strconv.Atoi(os.Args[1])
	require(err)
	structs(leaves / leavesPerInterface)
	cached(leaves / leavesPerInterface)
}
