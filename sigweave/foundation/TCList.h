#pragma once

#include <cstddef>
#include <memory>
#include <vector>

// A doubly linked list whose nodes come from node blocks of 10 and are reused: once it has been as long as it
// ever gets, adding and removing allocates nothing. It owns its nodes and holds small values by copy. For one
// thread at a time.
template <class TYPE>
class TCList {
 public:
    struct Node {
        Node* next = nullptr;
        Node* previous = nullptr;
        TYPE value{};
    };

    TCList() = default;
    TCList(const TCList&) = delete;
    TCList& operator=(const TCList&) = delete;

    int GetCount() const { return count; }
    bool IsEmpty() const { return count == 0; }

    // For walking: null at either end. A node is valid until its value is removed.
    Node* GetHead() const { return head; }
    Node* GetTail() const { return tail; }

    // Throws std::bad_alloc when there is no memory for a new node block; the list is then unchanged.
    void AddTail(TYPE value) {
        Node* node = TakeNode();
        node->value = value;
        node->next = nullptr;
        node->previous = tail;
        (tail != nullptr ? tail->next : head) = node;
        tail = node;
        ++count;
    }

    // The list must not be empty.
    TYPE RemoveHead() {
        Node* node = head;
        head = node->next;
        (head != nullptr ? head->previous : tail) = nullptr;
        --count;
        node->next = spare;
        spare = node;
        return node->value;
    }

    // The list must not be empty.
    TYPE RemoveTail() {
        Node* node = tail;
        tail = node->previous;
        (tail != nullptr ? tail->next : head) = nullptr;
        --count;
        node->next = spare;
        spare = node;
        return node->value;
    }

    // Removes every value and gives the node blocks back.
    void RemoveAll() {
        nodeBlocks.clear();
        head = tail = spare = nullptr;
        count = 0;
    }

 private:
    static constexpr std::size_t NODES_PER_BLOCK = 10;

    Node* TakeNode() {
        if (spare == nullptr) AddNodeBlock();
        Node* node = spare;
        spare = node->next;
        return node;
    }

    void AddNodeBlock() {
        nodeBlocks.push_back(std::make_unique<Node[]>(NODES_PER_BLOCK));
        for (std::size_t i = NODES_PER_BLOCK; i-- > 0;) {
            nodeBlocks.back()[i].next = spare;
            spare = &nodeBlocks.back()[i];
        }
    }

    Node* head = nullptr;
    Node* tail = nullptr;
    Node* spare = nullptr;
    int count = 0;
    std::vector<std::unique_ptr<Node[]>> nodeBlocks;
};
