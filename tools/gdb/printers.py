"""Pretty-printers for libsys_marlix: texts, buffers, containers, dates, numbers and locks as what they hold.

GDB loads this file by itself with the shared library where it is installed under GDB's auto-load folder; else say
"source printers.py". Words that contradict each other, and memory that cannot be read, are shown as <damaged: ...>: a
printer never follows what cannot be right. Locks are decoded as the Linux host lays them out.
"""

import gdb
import gdb.printing
import gdb.types

# What reading from a damaged object can raise, conversions of absurd numbers included.
ERRORS = (gdb.error, ValueError, OverflowError, RuntimeError)


class Damaged(RuntimeError):
    """An object whose words contradict each other."""


def damage(problem):
    return '<damaged: %s>' % problem


def limit():
    """How many elements or bytes the user wants to see; None for all."""
    return gdb.parameter('print elements') or None


def counted(number, noun):
    return '%d %s%s' % (number, noun, '' if number == 1 else 's')


def utf8(pointer, length):
    """A text, which the debugger reads, cuts and quotes itself."""
    return pointer.lazy_string('UTF-8', length=length)


def bytes_of(pointer, count):
    """': 48 65 6C', cut at the user's limit; nothing for no bytes."""
    if count == 0:
        return ''
    shown = min(count, limit() or count)
    memory = gdb.selected_inferior().read_memory(int(pointer), shown)
    text = ' '.join('%02X' % ord(byte) for byte in memory)
    return ': ' + text + ('...' if shown < count else '')


def address_of(value):
    return int(value.address)


def base_of(value, name):
    """The base class sub-object of a value, whose type's name begins with `name`."""
    for field in value.type.strip_typedefs().fields():
        if field.is_base_class and field.name.startswith(name):
            return value[field]
    raise Damaged('no base %s' % name)


class Printer:
    """A value that is one line. Subclasses say which."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        try:
            return self.summary()
        except ERRORS as problem:
            return damage(problem)


class Elements(Printer):
    """A value that has elements as well."""

    def children(self):
        try:
            for index, element in enumerate(self.elements()):
                yield '[%d]' % index, element
        except ERRORS as problem:
            yield '[...]', damage(problem)

    def display_hint(self):
        return 'array'


class Entries(Printer):
    """A value that has keys and values."""

    def children(self):
        index = 0
        try:
            for key, value in self.entries():
                yield '[%d]' % index, key
                yield '[%d]' % (index + 1), value
                index += 2
        except ERRORS as problem:
            yield '[%d]' % index, '...'
            yield '[%d]' % (index + 1), damage(problem)

    def display_hint(self):
        return 'map'


# Texts


class String(Printer):
    def summary(self):
        data = self.value['mData']
        length, capacity = int(data['mByteLength']), int(data['mCapacity'])
        if length > capacity:
            raise Damaged('%d of %d bytes' % (length, capacity))
        text = data['mSentinel'].address + 1
        gdb.selected_inferior().read_memory(int(text), length)  # refused here, and not while it is shown
        return utf8(text, length)


class Path(Printer):
    def summary(self):
        return String(self.value['mText']).summary()


class TextStream(Printer):
    def summary(self):
        begin, end, last = (int(self.value[name]) for name in ('mBegin', 'mWrite', 'mCapacityEnd'))
        if not begin <= end <= last:
            raise Damaged('%d of %d bytes' % (end - begin, last - begin))
        return utf8(self.value['mBegin'], end - begin) if end > begin else '""'


class Name(Printer):
    def summary(self):
        return self.value['mName']


class Version(Printer):
    def summary(self):
        return '%d.%d.%d' % tuple(int(self.value[name]) for name in ('mMajor', 'mMinor', 'mRevision'))


# Bytes


def memory_block(handle):
    """Owners, size and bytes of a CVQRCMemoryBuffer."""
    block = handle['mBlock']
    owners, size, data = int(block['referenceCount']), int(block['size']), block['data']
    if size != 0 and int(data) == 0:
        raise Damaged('%d bytes at null' % size)
    return owners, size, data


def shared(owners):
    return ', %d owners' % owners if owners > 1 else ''


class MemoryBuffer(Printer):
    def handle(self):
        return self.value

    def summary(self):
        owners, size, data = memory_block(self.handle())
        return counted(size, 'byte') + shared(owners) + bytes_of(data, size)


class Buffer(MemoryBuffer):
    def handle(self):
        return self.value['mMemory']


class ByteStream(Printer):
    def summary(self):
        owners, capacity, data = memory_block(self.value['mStorage'])
        length, position = int(self.value['mLength']), int(self.value['mReadPosition'])
        if length > capacity:
            raise Damaged('%d of %d bytes' % (length, capacity))
        text = '%d of %s%s' % (length, counted(capacity, 'byte'), shared(owners))
        text += ', read to %d' % position
        if int(self.value['mEndOfData']) != 0:
            text += ', read past its end'
        return text + bytes_of(data, length)


class RawMemoryBuffer(Printer):
    def summary(self):
        block = self.value['mBlock']
        if int(block) == 0:
            return 'no bytes'
        capacity = int(block['capacity'])
        return counted(capacity, 'byte') + bytes_of(block + 1, capacity)


class BufferReader(Printer):
    def summary(self):
        size, position = int(self.value['mSize']), int(self.value['mPosition'] - self.value['mBegin'])
        if not 0 <= position <= size:
            raise Damaged('at %d of %d' % (position, size))
        return 'at %d of %s' % (position, counted(size, 'byte')) + bytes_of(self.value['mPosition'], size - position)


class CircularByteBuffer(Printer):
    FLAGS = ((1, 'read underflow'), (2, 'write overflow'), (4, 'invalid'))

    def summary(self):
        first, last, begin, end = (int(self.value['m_' + name])
                                   for name in ('physBegin', 'physEnd', 'logicBegin', 'logicEnd'))
        if not (first <= begin <= last and first <= end <= last and first < last):
            raise Damaged('positions %d and %d in %d bytes' % (begin - first, end - first, last - first))
        storage = last - first
        size = (end - begin) % storage if end != begin else 0
        flags = int(self.value['mFlags'])
        text = '%d of %s' % (size, counted(storage - 1, 'byte'))
        text += ''.join(', ' + name for bit, name in self.FLAGS if flags & bit)
        if begin <= end:
            return text + bytes_of(begin, size)
        behind = bytes_of(first, size - (last - begin))
        return text + bytes_of(begin, last - begin) + behind[1:]


# Numbers and dates


class Fix16(Printer):
    def summary(self):
        raw = int(self.value['mRaw'])
        return '%s (raw %d)' % (repr(raw / 65536.0), raw)


def span_text(negative, days, hours, minutes, seconds, micros):
    text = '-' if negative else ''
    text += '%d d ' % days if days else ''
    text += '%02d:%02d:%02d' % (hours, minutes, seconds)
    return text + ('.%06d' % micros if micros else '')


class Span(Printer):
    def summary(self):
        return span_text(*(int(self.value[name])
                           for name in ('negative', 'days', 'hours', 'minutes', 'seconds', 'microseconds')))


class TimeSpan(Printer):
    def summary(self):
        micros = int(self.value['mValue'])
        negative = micros >= 1 << 63
        seconds, rest = divmod((1 << 64) - micros if negative else micros, 1000000)
        minutes, second = divmod(seconds, 60)
        hours, minute = divmod(minutes, 60)
        return span_text(negative, hours // 24, hours % 24, minute, second, rest)


def date_text(year, month, day):
    return '%d-%02d-%02d' % (year, month, day)


def time_text(hour, minute, second, micros):
    return '%02d:%02d:%02d' % (hour, minute, second) + ('.%06d' % micros if micros else '')


class Date(Printer):
    def summary(self):
        return date_text(*(int(self.value[name]) for name in ('year', 'month', 'day')))


class Time(Printer):
    def summary(self):
        return time_text(*(int(self.value[name]) for name in ('hour', 'minute', 'second', 'microsecond')))


def date_of_day(number):
    """CVQDateAndTime::getDateFromDays, its cycles from 1970 included."""
    of_400_years = number % 146097
    quarters = of_400_years % 36524 * 4 + 2
    year = (1970 + number // 146097 * 400 + of_400_years // 36524 * 100 + quarters // 1461) & 0xFFFF
    leap = year % 4 == 0 and (year % 100 != 0 or year % 16 == 0)
    day = quarters % 1461 // 4
    month = 1
    for length in (31, 29 if leap else 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31):
        if day < length:
            break
        day -= length
        month += 1
    return date_text(year, month, day + 1)


class DateAndTime(Printer):
    def summary(self):
        seconds, micros = divmod(int(self.value['mValue']), 1000000)
        minutes, second = divmod(seconds, 60)
        hours, minute = divmod(minutes, 60)
        return date_of_day(hours // 24) + ' ' + time_text(hours % 24, minute, second, micros)


# Growable arrays


def slots(base, element):
    """The elements of a CVQVectorBase: a pointer to the first, how many, the capacity."""
    block = base['mData']
    if int(block) & 1 or int(block) == 0:  # the older form without slots; no block
        return None, 0, 0
    size, capacity = int(block['size']), int(block['capacity'])
    if not 0 <= size <= capacity:
        raise Damaged('%d of %d elements' % (size, capacity))
    return (block + 1).cast(element.pointer()), size, capacity


def element_type(value, index=0):
    return value.type.strip_typedefs().template_argument(index)


class Vector(Elements):
    NAME = 'TVQVector'

    def slots(self):
        return slots(self.value['mBase'], element_type(self.value))

    def elements(self):
        first, size, _ = self.slots()
        return (first[index] for index in range(size))

    def summary(self):
        _, size, capacity = self.slots()
        return '%s of %d, capacity %d' % (self.NAME, size, capacity)


class PtrVector(Vector):
    NAME = 'TVQPtrVector'

    def slots(self):
        base = base_of(self.value, 'TVQVector<')
        return slots(base['mBase'], element_type(base))


class SortedVector(Vector):
    NAME = 'TVQSortedVector'

    def slots(self):
        return Vector(self.value['mElements']).slots()


class ConstRefCountedVector(Vector):
    NAME = 'TVQConstRefCountedVector'

    def slots(self):
        shared_block = self.value['mShared']
        return Vector(shared_block['elements']).slots() if int(shared_block) != 0 else (None, 0, 0)

    def summary(self):
        shared_block = self.value['mShared']
        owners = int(shared_block['owners']) if int(shared_block) != 0 else 0
        return '%s of %d%s' % (self.NAME, self.slots()[1], shared(owners))


class Queue(Vector):
    NAME = 'TVQQueue'

    def slots(self):
        first, size, capacity = slots(self.value['mBase'], element_type(self.value))
        front = int(self.value['mFront'])
        if not 0 <= front <= size:
            raise Damaged('front %d of %d' % (front, size))
        return (first + front if first is not None else None), size - front, capacity


class Map(Entries):
    def slots(self):
        return Vector(self.value['mEntries']).slots()

    def entries(self):
        first, size, _ = self.slots()
        return ((first[index]['key'], first[index]['value']) for index in range(size))

    def summary(self):
        return 'TVQMap of %d' % self.slots()[1]


# Hash tables


def is_relocatable(kind):
    """What TVQIsRelocatable says of the types that the library has, as far as debug information tells."""
    if kind.code not in (gdb.TYPE_CODE_STRUCT, gdb.TYPE_CODE_UNION):
        return True
    return kind.name in ('CVQString', 'CVQBuffer', 'CVQRCMemoryBuffer')


def is_in_place(kind):
    """Whether a slot holds a value of this type, or a pointer to it."""
    kind = kind.strip_typedefs().unqualified()
    try:
        return bool(gdb.parse_and_eval('TVQSlot<%s>::kInPlace' % kind))
    except gdb.error:  # the compiler has not kept the constant
        return kind.sizeof <= gdb.lookup_type('void').pointer().sizeof and is_relocatable(kind)


def slot_value(cell, kind, in_place):
    pointer = cell.address.cast(kind.pointer()) if in_place else cell.cast(kind.pointer())
    return pointer.dereference()


class HashArray(Entries):
    def summary(self):
        return 'TVQHashArray of %d' % int(self.value['mEngine']['mItemCount'])

    def entries(self):
        engine = self.value['mEngine']
        end = address_of(engine['mSentinel'])
        kinds = [(kind, is_in_place(kind)) for kind in (element_type(self.value, 0), element_type(self.value, 1))]
        left = int(engine['mItemCount'])
        for index in range(int(engine['mBucketCount'])):
            if left == 0:
                return
            item = engine['mBuckets'] + index
            if int(item['mNext']) == 0:
                continue
            while int(item) != end:
                if left == 0:
                    raise Damaged('more items than were counted')
                left -= 1
                yield slot_value(item['mKey'], *kinds[0]), slot_value(item['mValue'], *kinds[1])
                item = item['mNext']
        if left != 0:
            raise Damaged('%d items missing' % left)


class HashMap(Entries):
    def summary(self):
        return 'TVQHashMap of %d' % int(self.value['mEngine']['mCount'])

    def entries(self):
        engine = self.value['mEngine']
        table, end = engine['mTable'], address_of(engine['mSentinel'])
        cells, behind, last = table['mCells'], int(table['mNextFree']), int(table['mEnd'])
        if int(cells) == end:
            return
        if not int(cells) < behind <= last:
            raise Damaged('cells in use behind the last')
        kind = element_type(self.value)
        in_place = is_in_place(kind)
        homes = self.homes(engine, end)
        left = int(engine['mCount'])
        for index in range(1, (behind - int(cells)) // cells.dereference().type.sizeof):
            item = cells + index
            if int(item['mKey']) == 0:
                continue
            if left == 0:
                raise Damaged('more entries than were counted')
            left -= 1
            home = homes.get(int(item), item)
            yield item['mKey'], slot_value(home['mValue'], kind, in_place)
        if left != 0:
            raise Damaged('%d entries missing' % left)

    @staticmethod
    def homes(engine, end):
        """CVQHashMapImpl::homeOf: the entries whose values are still written in the array before the last growth."""
        previous = engine['mPrevious']
        old = previous['mCells']
        if int(old) in (0, end):
            return {}
        homes = {}
        place = int(old['mKey'])
        if place != 0:
            last = old + place
            homes[int(last['mNext'])] = last
        if int(old['mNext']) != 0:
            homes[int(old['mNext'])] = previous['mNextFree'] - 1
        return homes


# Lists


class List(Elements):
    def summary(self):
        return 'TVQList of %d' % int(self.value['mSize'])

    def elements(self):
        end = self.value['mEnd']
        kind = element_type(self.value)
        node = end['mNext']
        links = node.dereference().type.sizeof
        offset = -(-links // kind.alignof) * kind.alignof  # an element lies behind the links
        before = address_of(end)
        for _ in range(int(self.value['mSize'])):
            if int(node) == address_of(end):
                raise Damaged('shorter than its size')
            if int(node['mPrevious']) != before:
                raise Damaged('links that do not fit')
            before = int(node)
            yield gdb.Value(before + offset).cast(kind.pointer()).dereference()
            node = node['mNext']
        if int(node) != address_of(end):
            raise Damaged('longer than its size')


class IntrusiveList(Elements):
    NAME = 'TVQIntrusiveList'

    def links(self):
        head = self.value['mHead']
        end = address_of(head)
        seen = set()
        link = head['mNext']
        while int(link) != end:
            if int(link) in seen:
                raise Damaged('a ring without its head')
            seen.add(int(link))
            yield link
            link = link['mNext']

    def elements(self):
        kind = element_type(self.value)
        return (link.cast(kind.pointer()).dereference() for link in self.links())

    def summary(self):
        head = self.value['mHead']
        return '%s%s' % (self.NAME, ', empty' if int(head['mNext']) == address_of(head) else '')


class IntrusiveSlist(IntrusiveList):
    NAME = 'TVQIntrusiveSlist'


class Optional(Elements):
    def exists(self):
        flag = int(self.value['mInitialised'])
        if flag > 1:
            raise Damaged('flag %d' % flag)
        return flag == 1

    def elements(self):
        if self.exists():
            kind = element_type(self.value)
            yield self.value['mStorage'].address.cast(kind.pointer()).dereference()

    def summary(self):
        return 'TVQOptional' if self.exists() else 'TVQOptional, empty'


# Locks

ID = 0x3FFFFFFF
WAITERS = 0x80000000
SHARED = 0x80000000
RECURSIVE = 0x40000000
DEPTH = 0x00FFFFFF
CONDITION_WAITERS = 0x0007FFFF


def thread_name(identity):
    for thread in gdb.selected_inferior().threads():
        if thread.ptid[1] == identity:
            name = ' "%s"' % thread.name if thread.name else ''
            return 'thread %d%s (LWP %d)' % (thread.num, name, identity)
    return 'LWP %d, no thread of this process' % identity


def mutex_text(sync):
    count, owner = int(sync['__count']) & 0xFFFFFFFF, int(sync['__owner']) & 0xFFFFFFFF
    text = 'held by ' + thread_name(owner & ID) if owner & ID else 'free'
    if owner & ID and count & RECURSIVE and count & DEPTH:
        text += ', locked %d times' % ((count & DEPTH) + 1)
    if owner & WAITERS:
        text += ', threads wait'
    text += ', recursive' if count & RECURSIVE else ''
    return text + (', shared' if count & SHARED else '')


class Mutex(Printer):
    def summary(self):
        return mutex_text(self.value)


class CriticalSection(Printer):
    def summary(self):
        return mutex_text(self.value['mSync'])


class Condition(Printer):
    def summary(self):
        count = int(self.value['__count'])
        waiting = counted(count & CONDITION_WAITERS, 'thread') + ' waiting'
        return waiting + (', shared' if count & SHARED else '')


def semaphore_text(handle):
    if int(handle['valid']) == 0:
        return 'invalid'
    if int(handle['valid']) != 1:
        raise Damaged('neither valid nor invalid')
    count, most = int(handle['count']), int(handle['maxCount'])
    if count > most:
        raise Damaged('%d of %d units' % (count, most))
    text = '%d of %s, %s waiting' % (count, counted(most, 'unit'), counted(int(handle['waiters']), 'thread'))
    mutex = handle['mutex']
    if int(mutex['__owner']) & ID:
        text += ', its mutex ' + mutex_text(mutex)
    return text


class SemaphoreHandle(Printer):
    def summary(self):
        return semaphore_text(self.value)


class Semaphore(Printer):
    def summary(self):
        return semaphore_text(self.value['mHandle'])


class Barrier(Printer):
    def summary(self):
        current = int(self.value['mCurrent'])
        if current > 1:
            raise Damaged('sub-barrier %d' % current)
        sub = self.value['mSub'][current]
        threshold, remaining = int(sub['mThreshold']), int(sub['mRemaining'])
        if remaining > threshold:
            raise Damaged('%d of %d arrivals lacking' % (remaining, threshold))
        return '%d of %s arrived' % (threshold - remaining, counted(threshold, 'thread'))


PRINTERS = {
    'CVQString': String,
    'CVQPath': Path,
    'CVQOTextStream': TextStream,
    'CVQClassID': Name,
    'CVQVersion': Version,
    'CVQRCMemoryBuffer': MemoryBuffer,
    'CVQBuffer': Buffer,
    'CVQByteStream': ByteStream,
    'CVQRawMemoryBuffer': RawMemoryBuffer,
    'CVQBufferReader': BufferReader,
    'CVQCircularByteBuffer': CircularByteBuffer,
    'CVQFix16': Fix16,
    'CVQDateAndTime': DateAndTime,
    'CVQDateAndTime::SVQDate': Date,
    'CVQDateAndTime::SVQTime': Time,
    'CVQTimeSpan': TimeSpan,
    'CVQTimeSpan::Span': Span,
    'TVQVector': Vector,
    'TVQPtrVector': PtrVector,
    'TVQSortedVector': SortedVector,
    'TVQConstRefCountedVector': ConstRefCountedVector,
    'TVQQueue': Queue,
    'TVQMap': Map,
    'TVQHashArray': HashArray,
    'TVQHashMap': HashMap,
    'TVQList': List,
    'TVQIntrusiveList': IntrusiveList,
    'TVQIntrusiveSlist': IntrusiveSlist,
    'TVQOptional': Optional,
    '_sync': Mutex,
    'CVQMutex': Mutex,
    'CVQCriticalSection': CriticalSection,
    'CVQWaitCondition': Condition,
    'VQOSTypes::SEMHANDLE': SemaphoreHandle,
    'CVQBinarySemaphore': Semaphore,
    'CVQCountingSemaphore': Semaphore,
    'CVQBarrier': Barrier,
}


def plain_name(name):
    """'TVQVector' of 'TVQVector<int>'; None of what is nested in a template, as 'TVQVector<int>::SEntry'."""
    depth = 0
    for index, character in enumerate(name):
        depth += (character == '<') - (character == '>')
        if character == '>' and depth == 0:
            return name[:name.index('<')] if index == len(name) - 1 else None
    return name


class Collection(gdb.printing.PrettyPrinter):
    def __init__(self):
        super().__init__('sys_marlix', [gdb.printing.SubPrettyPrinter(name) for name in PRINTERS])
        self.switches = {switch.name: switch for switch in self.subprinters}

    def __call__(self, value):
        name = gdb.types.get_basic_type(value.type).tag
        plain = plain_name(name) if name else None
        return PRINTERS[plain](value) if plain in PRINTERS and self.switches[plain].enabled else None


gdb.printing.register_pretty_printer(gdb.current_objfile(), Collection(), replace=True)
